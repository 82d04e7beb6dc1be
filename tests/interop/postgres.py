"""A PostgreSQL server of the tests' own, on a socket in a temporary folder."""
import glob
import os
import shutil
import tempfile

from checks import left_out, run


class Postgres:
    """For the length of a with block. It refuses to run as root."""

    def __init__(self):
        self.bin = max(glob.glob("/usr/lib/postgresql/*/bin"), default="")
        self.user = ["runuser", "-u", "postgres", "--"] if os.geteuid() == 0 else []
        self.count = 0

    def there(self):
        good = bool(self.bin) and (not self.user or shutil.which("runuser") is not None)
        if not good:
            left_out("the index in PostgreSQL", "postgresql")
        return good

    def call(self, program, *words):
        return run(*self.user, os.path.join(self.bin, program), *words, cwd="/")

    def __enter__(self):
        self.folder = tempfile.mkdtemp()
        if self.user:
            shutil.chown(self.folder, "postgres", "postgres")
        self.data = os.path.join(self.folder, "data")
        made = self.call("initdb", "-N", "-U", "vexal", "-A", "trust", "-E", "UTF8", "--locale=C", "-D", self.data)
        if made.returncode != 0:
            raise RuntimeError(made.stderr)
        with open(os.path.join(self.data, "postgresql.conf"), "a", encoding="ascii") as settings:
            settings.write("listen_addresses = ''\n")
        self.start()
        return self

    def start(self):
        with open(os.devnull, "wb") as nothing:
            started = run(*self.user, os.path.join(self.bin, "pg_ctl"), "-w", "-D", self.data, "-l", os.path.join(self.folder, "log"), "-o",
                          "-k " + self.folder, "start", cwd="/", stdin=nothing)
        if started.returncode != 0:
            raise RuntimeError(started.stderr)

    def stop(self, how="immediate"):
        self.call("pg_ctl", "-w", "-D", self.data, "-m", how, "stop")

    def fresh(self):
        """The address of a database that is empty."""
        self.count += 1
        name = "vexal%d" % self.count
        self.call("createdb", "-h", self.folder, "-U", "vexal", name)
        return "postgresql://vexal@/%s?host=%s" % (name, self.folder)

    def ask(self, address, sql):
        """The lines of an answer."""
        return self.call("psql", "-At", "-c", sql, address).stdout.decode().splitlines()

    def __exit__(self, *_):
        self.stop()
        shutil.rmtree(self.folder, True)
