// The subcommands, each in its own file.
#pragma once

#include "args.h"

namespace vexal {

extern const Command kDump;
extern const Command kValidate;
extern const Command kConvert;
extern const Command kJson;
extern const Command kXml;
extern const Command kModify;
extern const Command kDeidentify;
extern const Command kPixel;
extern const Command kMake;
extern const Command kTemplate;
extern const Command kLookup;
extern const Command kConfig;
extern const Command kDir;
extern const Command kCapture;
extern const Command kSr;
extern const Command kEcho;
extern const Command kStore;
extern const Command kFind;
extern const Command kGet;
extern const Command kMove;
extern const Command kMpps;
extern const Command kCommit;
extern const Command kReceive;
extern const Command kServe;
extern const Command kArchive;
extern const Command kWeb;

}  // namespace vexal
