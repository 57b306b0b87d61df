#!/usr/bin/env python3
"""Reads every #include of the tree against the table of cmake/layers.cmake.

    layering.py [PROJECT]

Prints one line per fault and exits 1 when there is one. What it asks of the tree:

- every source file of src, include, plugins and apps lies in the folder of a layer (the one with
  the longest matching folder);
- a file includes its own layer and the layers that the table gives to it, nothing else of the
  project; a *_test.cc may include any layer, and is included by nobody;
- a project header is included in double quotes, by its path below src or include (below plugins
  in a plug-in, beside the file in plugins and apps); a header in double quotes is one of the project;
- a plain layer includes, besides the project, only headers of C++ and POSIX;
- no header includes itself, in however many steps.
"""
import fnmatch
import os
import re
import sys

SOURCE_FOLDERS = ("src", "include", "plugins", "apps")
INCLUDE_ROOTS = ("src", "include")
OWN_HEADERS = ("plugins/", "apps/")  # these have headers of their own beside their sources
ENDINGS = (".h", ".cc")

CXX_HEADERS = frozenset("""
algorithm any array atomic barrier bit bitset charconv chrono codecvt compare complex concepts
condition_variable coroutine deque exception execution filesystem format forward_list fstream
functional future initializer_list iomanip ios iosfwd iostream istream iterator latch limits list
locale map memory memory_resource mutex new numbers numeric optional ostream queue random ranges
ratio regex scoped_allocator semaphore set shared_mutex source_location span sstream stack
stdexcept stop_token streambuf string string_view strstream syncstream system_error thread tuple
type_traits typeindex typeinfo unordered_map unordered_set utility valarray variant vector version
cassert cctype cerrno cfenv cfloat cinttypes climits clocale cmath csetjmp csignal cstdarg cstddef
cstdint cstdio cstdlib cstring ctime cuchar cwchar cwctype
""".split())

POSIX_HEADERS = frozenset("""
aio.h arpa/inet.h assert.h complex.h cpio.h ctype.h dirent.h dlfcn.h errno.h fcntl.h fenv.h float.h
fmtmsg.h fnmatch.h ftw.h glob.h grp.h iconv.h inttypes.h iso646.h langinfo.h libgen.h limits.h
locale.h math.h monetary.h mqueue.h ndbm.h net/if.h netdb.h netinet/in.h netinet/tcp.h nl_types.h
poll.h pthread.h pwd.h regex.h sched.h search.h semaphore.h setjmp.h signal.h spawn.h stdarg.h
stdbool.h stddef.h stdint.h stdio.h stdlib.h string.h strings.h sys/file.h sys/ipc.h sys/mman.h
sys/msg.h sys/resource.h sys/select.h sys/sem.h sys/shm.h sys/socket.h sys/stat.h sys/statvfs.h
sys/time.h sys/times.h sys/types.h sys/uio.h sys/un.h sys/utsname.h sys/wait.h syslog.h tar.h
termios.h tgmath.h time.h unistd.h utime.h utmpx.h wchar.h wctype.h wordexp.h
""".split())

INCLUDE_LINE = re.compile(r'^[ \t]*#[ \t]*include\b[ \t]*(.*)$')
TARGET = re.compile(r'^(?:"([^"]+)"|<([^>]+)>)')
BLOCK_COMMENT = re.compile(r"/\*.*?\*/", re.DOTALL)


class Table:
    """The layers of cmake/layers.cmake."""

    def __init__(self, text):
        self.folder, self.may_use = {}, {}
        for row in self._list(text, "PADDOCK_LAYERS", r'"([^"]*)"'):
            fields = [f.strip() for f in row.split("|")]
            if len(fields) != 3:
                raise SystemExit("layering: a row of PADDOCK_LAYERS has no three fields: " + row)
            self.folder[fields[0]] = fields[1]
            self.may_use[fields[0]] = fields[2].split()
        for layer, uses in self.may_use.items():
            self.may_use[layer] = [name for use in uses for name in self._named(use)]
        self.plain = set(self._list(text, "PADDOCK_PLAIN_LAYERS", r"([^\s()]+)"))
        for layer in self.folder:
            for used in self.may_use[layer]:
                if used not in self.folder:
                    raise SystemExit("layering: %s may use %s, which is no layer" % (layer, used))
        unknown = self.plain - set(self.folder)
        if not self.folder or not self.plain or unknown:
            raise SystemExit("layering: cannot read cmake/layers.cmake " + " ".join(sorted(unknown)))

    def _named(self, pattern):
        """The layers that a pattern with * stands for; what stands for none comes back as it is."""
        return fnmatch.filter(self.folder, pattern) or [pattern]

    @staticmethod
    def _list(text, name, item):
        found = re.search(r"set\(%s\s+(.*?)\n?\)" % name, text, re.DOTALL)
        return re.findall(item, found.group(1)) if found else []

    def layer_of(self, path):
        best = None
        for layer, folder in self.folder.items():
            if path.startswith(folder + "/") and (best is None or len(folder) > len(self.folder[best])):
                best = layer
        return best


class Tree:
    """The source files of a project and what each includes."""

    def __init__(self, root):
        self.root = root
        self.files = sorted(self._walk())
        self.known = set(self.files)

    def _walk(self):
        for top in SOURCE_FOLDERS:
            for folder, _, names in os.walk(os.path.join(self.root, top)):
                for name in names:
                    if name.endswith(ENDINGS):
                        yield os.path.relpath(os.path.join(folder, name), self.root)

    def includes(self, path):
        """(line number, text in quotes or None, text in angle brackets or None) of each #include."""
        with open(os.path.join(self.root, path), encoding="utf-8") as f:
            text = f.read()
        text = BLOCK_COMMENT.sub(lambda m: "\n" * m.group(0).count("\n"), text)
        for number, line in enumerate(text.split("\n"), 1):
            match = INCLUDE_LINE.match(line)
            if match:
                target = TARGET.match(match.group(1))
                yield (number,) + (target.groups() if target else (None, None))

    def resolve(self, name):
        for top in INCLUDE_ROOTS:
            path = os.path.normpath(os.path.join(top, name))
            if path in self.known:
                return path
        return None


def is_test(path):
    return path.endswith("_test.cc")


def own_header(tree, path, name):
    """The header that "name" in a plug-in's or a program's file is, when that has it, or None."""
    if not path.startswith(OWN_HEADERS):
        return None
    top, beside = path.split("/")[0], os.path.dirname(path)
    for folder in (beside, top):
        found = os.path.normpath(os.path.join(folder, name))
        if found in tree.known and found.startswith(top + "/"):
            return found
    return None


def check_quoted(table, tree, path, name):
    """The fault of `path` including "name", or None."""
    target = tree.resolve(name)
    if target is None:
        if is_test(path) and os.path.exists(os.path.join(tree.root, "tests", name)):
            return None
        target = own_header(tree, path, name)
        if target is None:
            return 'includes "%s", which is not below src or include' % name
    if is_test(target):
        return "includes the test %s" % target
    layer, used = table.layer_of(path), table.layer_of(target)
    if not is_test(path) and used != layer and used not in table.may_use[layer]:
        return "includes %s: layer %s may not use %s" % (target, layer, used)
    return None


def check_angled(table, tree, path, name):
    """The fault of `path` including <name>, or None."""
    if tree.resolve(name):
        return "includes <%s>: project headers are included in double quotes" % name
    layer = table.layer_of(path)
    if layer in table.plain and not is_test(path) and name not in CXX_HEADERS | POSIX_HEADERS:
        return "includes <%s>: layer %s keeps to C++ and POSIX" % (name, layer)
    return None


def check_file(table, tree, path):
    if table.layer_of(path) is None:
        yield "%s: lies in no layer's folder" % path
        return
    for number, quoted, angled in tree.includes(path):
        if quoted is not None:
            fault = check_quoted(table, tree, path, quoted)
        elif angled is not None:
            fault = check_angled(table, tree, path, angled)
        else:
            fault = "has an #include that names no header"
        if fault:
            yield "%s:%d: %s" % (path, number, fault)


def find_cycles(tree):
    """One line per cycle of headers."""
    edges = {}
    for path in tree.files:
        found = (tree.resolve(quoted) for _, quoted, _ in tree.includes(path) if quoted)
        edges[path] = [f for f in found if f]
    done, trail = set(), []

    def visit(path):
        if path in trail:
            yield "include cycle: " + " -> ".join(trail[trail.index(path):] + [path])
            return
        if path in done:
            return
        trail.append(path)
        for target in edges[path]:
            yield from visit(target)
        trail.pop()
        done.add(path)

    for path in tree.files:
        yield from visit(path)


def faults(root):
    with open(os.path.join(root, "cmake", "layers.cmake"), encoding="utf-8") as f:
        table = Table(f.read())
    tree = Tree(root)
    if not tree.files:
        yield "no source files below " + root
    for path in tree.files:
        yield from check_file(table, tree, path)
    yield from find_cycles(tree)


def main(argv):
    here = os.path.dirname(os.path.abspath(__file__))
    found = list(faults(argv[1] if len(argv) > 1 else os.path.join(here, "..", "..")))
    for fault in found:
        print(fault)
    print("layering: %d fault%s" % (len(found), "" if len(found) == 1 else "s"))
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
