// Objects made of other things: the headers of this room that others may include.
#pragma once
// None: it offers its subcommands alone.
