"""The measures: each returns rows of the report."""

import os
import tempfile
import time

import daemon
from permissions import KEELHOUSE, PROGRAM, UNIX_GROUP, UNIX_USER, PermissionTree, host_accounts
from processes import CannotMeasure, median, peak_of, percentile, run, time_of
from propagation import PropagationTree
from report import Row, mebibytes, milliseconds, ratio_row
from server import exports_text
from slapd import Slapd
from volume import Volume

SIZES = (1_000, 10_000, 100_000)
SHARES = 10_000

LISTING_TARGET = 1 / 20
GROWTH_TARGET = 2  # how much dearer a share point is among ten times as many; were it looked up
# by walking the others, it would be 10
EXPORTS_TARGET = 1 / 5
IMPORT_TARGET = 1 / 20
TESTPARM_TARGET = 3
CHANGE_TARGET = 1
NAMES_TARGET = 1
STORES_TARGET = 1.2
QUOTAS_TARGET = 3
QUOTA_SLOTS = 2_097_152
QUOTA_USERS = 1_000
COUNTING_TARGET = 0.6
PRIVILEGES_TARGET = 2
LDAP_TARGET = 1.5
PROPAGATION_TARGET = 0.45
PLAIN_PROPAGATION_TARGET = 0.35
BARE_LOOP_TARGET = 0.75
UNCHANGED_TARGET = 0.3
ROUNDS = 5
EFFECTIVE_TARGET = 3
WHO_TARGET = 2_000_000_000  # nanoseconds
USERS = 10_000
GROUPS = 100
MEMBERSHIPS = 1_000  # of one user
LISTS = "/dev/shm"  # a file system that has room for long ACLs
FOLDERS = 10_000
ENTRIES = 128  # of the ACL that bench_acl reads
MEMORY_TARGET = 64 * 1024  # KiB
FLAT_TARGET = 1024  # KiB: less is the kernel's way of counting pages
SETTLING = 0.2  # seconds: the reply is read before the daemon has let go of it


def list_shares(requests, expected):
    """Lists all share points, each with its export; the nanoseconds that it took."""
    reply, took = requests.ask("getSharePointList", {})
    # Looking at each time costs more than what is measured; the number of them is enough.
    exported = reply.count(b'"nfsExportRecord"')
    if exported != expected:
        listed = len(daemon.require_status(reply, "readStatus").get("sharePointList", []))
        raise CannotMeasure(f"getSharePointList lists {listed} share points, {exported} of them "
                            f"exported, and not {expected}")
    return took


def listing(bench):
    """Listing all share points, and all registry shares."""
    folders = bench.server.use(SHARES)
    bench.fill_samba(folders)
    ours, theirs = [], []
    with bench.server.daemon() as running, running.requests() as requests:
        for _ in range(3):
            list_shares(requests, SHARES)
        for _ in range(3):
            theirs.append(bench.samba.time_of_list(SHARES))
            ours += [list_shares(requests, SHARES) for _ in range(10)]
    return [ratio_row(f"getSharePointList : net conf list, {SHARES:,} shares", median(ours),
                      median(theirs), LISTING_TARGET, "<= 1/20",
                      {"ours": ours, "theirs": theirs})]


def growth(bench):
    """How the time of a listing grows with the number of share points."""
    rows = []
    each = {}
    for size in SIZES:
        bench.server.use(size)
        with bench.server.daemon() as running, running.requests() as requests:
            for _ in range(2):
                list_shares(requests, size)
            samples = [list_shares(requests, size) for _ in range(max(5, 30_000 // size))]
        each[size] = min(samples) / size  # what else runs on the machine only adds
        rows.append(Row(f"getSharePointList, {size:,} shares", milliseconds(min(samples)),
                        value=each[size], value_text=f"{each[size] / 1000:.2f} us/share",
                        samples={"ours": samples}))
    factor = max(each[many] / each[few] for few, many in zip(SIZES, SIZES[1:]))
    rows.append(Row("    a share among ten times as many", "", value=factor,
                    value_text=f"{factor:.3g}", target=GROWTH_TARGET,
                    target_text=f"<= {GROWTH_TARGET} (linear)",
                    samples={"nanosecondsPerShare": each}))
    return rows


def exports(bench):
    """Reading and writing the exports file, and the NFS server's own reading of it."""
    folders = bench.server.folders(SHARES)
    changed = folders[0]
    file = os.path.join(bench.work, "exports")
    with open(file, "w", encoding="utf-8") as text:
        text.write(exports_text(folders))
    program = os.path.join(bench.programs, "bench_exports")
    ours = {"all": [], "readFile": [], "change": [], "writeFile": []}
    theirs = []
    bench.nfs_server(file).time_of_export_all(SHARES)
    for _ in range(5):
        theirs.append(bench.nfs_server(file).time_of_export_all(SHARES))
        for line in run([program, file, changed, "10"]).splitlines()[1:]:
            times = list(map(int, line.split()))
            for step, took in zip(ours, [sum(times)] + times):
                ours[step].append(took)
    rows = [ratio_row(f"readFile and writeFile : exportfs -ra, {SHARES:,} lines",
                      median(ours["all"]), median(theirs), EXPORTS_TARGET, "<= 1/5",
                      {**ours, "theirs": theirs})]
    names = {"readFile": "readFile", "change": "changing one line", "writeFile": "writeFile"}
    return rows + [Row(f"    {name}", milliseconds(median(ours[step])))
                   for step, name in names.items()]


def change(bench):
    """Sharing one folder and taking it out again."""
    bench.fill_samba(bench.server.use(SHARES))
    rows = change_rows(bench, f"among {SHARES:,} shares", *change_samples(bench, bench.samba))
    bench.server.use(0)
    return rows + change_rows(bench, "alone", *change_samples(bench, bench.empty_samba))


def change_samples(bench, samba):
    folder = os.path.join(bench.work, "changed")
    os.makedirs(folder, exist_ok=True)
    ours = {"add": [], "remove": []}
    theirs = {"add": [], "remove": []}
    keelhouse = {"add": [], "remove": []}
    with bench.server.daemon() as running, running.requests() as requests:
        for _ in range(2):
            daemon.share(requests, folder)
            daemon.unshare(requests, folder)
        for _ in range(15):
            ours["add"].append(daemon.share(requests, folder))
            theirs["add"].append(samba.time_of_add("changed", folder))
            ours["remove"].append(daemon.unshare(requests, folder))
            theirs["remove"].append(samba.time_of_remove("changed"))
            for action in keelhouse:
                keelhouse[action].append(bench.time_of_keelhouse("share", action, folder))
    return ours, theirs, keelhouse


def change_rows(bench, where, ours, theirs, keelhouse):
    rows = []
    for action, net in (("add", "addshare"), ("remove", "delshare")):
        samples = {"ours": ours[action], "theirs": theirs[action], "keelhouse": keelhouse[action]}
        rows.append(ratio_row(f"share {action} : net conf {net}, {where}", median(ours[action]),
                              median(theirs[action]), CHANGE_TARGET, samples=samples))
        rows.append(ratio_row(f"    by keelhouse share {action}", median(keelhouse[action]),
                              median(theirs[action])))
    return rows


def shares(bench):
    """Publishing all share points over SMB, and what Samba takes for the same shares."""
    bench.server.use(SHARES)
    program = [os.path.join(bench.tree, "usr/libexec/samba/synchronize-shares")]
    published = os.path.join(bench.tree, "etc/samba/paddock-shares.conf")
    written, unchanged, parsed = [], [], []
    for _ in range(10):
        if os.path.exists(published):
            os.remove(published)
        written.append(time_of(program))
        unchanged.append(time_of(program))
        parsed.append(bench.empty_samba.time_of_testparm(published, SHARES))
    imported = [bench.new_samba().time_of_import(published)]  # one takes minutes
    return [ratio_row(f"synchronize-shares : net conf import, {SHARES:,} shares", median(written),
                      median(imported), IMPORT_TARGET, "<= 1/20",
                      {"ours": written, "theirs": imported}),
            ratio_row("    : testparm -s of the file", median(written), median(parsed),
                      TESTPARM_TARGET, samples={"ours": written, "theirs": parsed}),
            Row("    when nothing has changed", milliseconds(median(unchanged)),
                samples={"ours": unchanged})]


def writes(bench):
    """Writing one share point, and how much of that is the programs that are told of it."""
    rows = []
    for count, where in ((0, "alone"), (SHARES, f"among {SHARES:,}")):
        bench.server.use(count)
        rows += write_rows(bench, where, *write_samples(bench))
    return rows


def write_samples(bench):
    folder = os.path.join(bench.work, "written")
    os.makedirs(folder, exist_ok=True)
    bare, told = [], []
    with bench.server.daemon() as running, running.requests() as requests:
        daemon.share(requests, folder)
        # In turn, since the machine changes its pace.
        for _ in range(10):
            told += [daemon.rename(requests, folder, number) for number in range(20)]
            with bench.server.without_programs():
                bare += [daemon.rename(requests, folder, number) for number in range(60)]
    return bare, told


def write_rows(bench, where, bare, told):
    programs = ", ".join(map(os.path.basename, bench.server.programs_of_writes()))
    theirs = 1 - median(bare) / median(told)
    return [Row(f"writing one share point {where}, no program there: p50",
                milliseconds(median(bare)), samples={"bare": bare, "told": told}),
            Row("    p99", milliseconds(percentile(bare, 99))),
            Row(f"    with {programs}: p50", milliseconds(median(told))),
            Row("    p99", milliseconds(percentile(told, 99))),
            Row("    the programs' part of p50", milliseconds(median(told) - median(bare)),
                value=theirs, value_text=f"{theirs:.0%}")]


def memory(bench):
    """What the daemon holds after many listings."""
    bench.server.use(SHARES)
    resident = {}
    with bench.server.daemon() as running, running.requests() as requests:
        resident[0] = running.memory()
        for number in range(1, 101):
            list_shares(requests, SHARES)
            if number % 10 == 0:
                time.sleep(SETTLING)
                resident[number] = running.memory()
        peak = running.memory("VmHWM")
    grown = max(abs(resident[number] - resident[10]) for number in resident if number > 10)
    samples = {"residentKiB": resident, "peakKiB": peak}
    return [Row(f"VmRSS after 100 listings of {SHARES:,}", mebibytes(resident[100]),
                value=resident[100], target=MEMORY_TARGET, target_text="<= 64 MiB",
                samples=samples),
            Row("    away from VmRSS after the 10th", mebibytes(grown), value=grown,
                target=FLAT_TARGET, target_text="<= 1 MiB (flat)"),
            Row("    at its start", mebibytes(resident[0])),
            Row("    at its highest (VmHWM)", mebibytes(peak))]


def names(bench):
    """Reading an ACL with the names of its principals, and looking up as many by themselves."""
    folder = os.path.join(bench.work, "names")
    os.makedirs(folder)
    lines = run([os.path.join(bench.programs, "bench_acl"), folder, str(SHARES), "100"])
    pairs = [tuple(map(int, line.split())) for line in lines.splitlines()[1:]]
    ours = [reading for reading, _ in pairs]
    theirs = [ENTRIES * search for _, search in pairs]
    return [ratio_row(f"get_acl : {ENTRIES} searches, {ENTRIES} entries among {SHARES:,} users",
                      median(ours), median(theirs), NAMES_TARGET, "<= 1",
                      {"ours": ours, "theirs": theirs})]


def ldap(bench):
    """Looking up a record on a directory server, and the same search by libldap alone."""
    program = os.path.join(bench.programs, "bench_ldap")
    schema = os.path.join(bench.tree, "usr/share/paddockd/ldap/paddock.schema")
    entries = run([program, "entries", str(SHARES)])
    with Slapd(os.path.join(bench.work, "slapd"), schema, entries) as slapd:
        lines = run([program, "lookups", slapd.uri, str(SHARES), "4000"])
    pairs = [tuple(map(int, line.split())) for line in lines.splitlines()[400:]]
    ours = [own for own, _ in pairs]
    theirs = [other for _, other in pairs]
    row = ratio_row(f"look-up on a directory server : libldap, {SHARES:,} records", median(ours),
                    median(theirs), LDAP_TARGET, "<= 1.5", {"ours": ours, "theirs": theirs})
    return [row, ldap_names(bench, schema)]


def ldap_names(bench, schema):
    """Reading an ACL with the names of users of a directory server, and looking up as many."""
    program = os.path.join(bench.programs, "bench_ldap_names")
    folder = os.path.join(bench.work, "ldap_names")
    os.makedirs(folder)
    users = run([program, "entries", str(SHARES)])
    with Slapd(os.path.join(bench.work, "slapd_names"), schema, users) as slapd, \
            tempfile.TemporaryDirectory(dir=LISTS) as lists:
        lines = run([program, "lists", slapd.uri, folder, lists, str(SHARES // ENTRIES)])
    pairs = [tuple(map(int, line.split())) for line in lines.splitlines()[4:]]
    ours = [reading for reading, _ in pairs]
    theirs = [searches for _, searches in pairs]
    return ratio_row(f"get_acl : libldap, {ENTRIES} entries among {SHARES:,} users of a server",
                     median(ours), median(theirs), LDAP_TARGET, "<= 1.5",
                     {"ours": ours, "theirs": theirs})


def read_folder(requests, folder):
    """Reads the settings of one folder; the nanoseconds that it took."""
    reply, took = requests.ask("readSettings", {"optionalArguments": {"path": folder}})
    configuration = daemon.require_status(reply, "readStatus")["configuration"]
    if configuration["sharePointRecord"].get("isIndexingEnabled") is not True:
        raise CannotMeasure(f"{folder} is not indexed")
    return took


def indexing(bench):
    """What many metadata stores cost the reading of one folder, and of all."""
    folders = bench.server.use(SHARES)
    folder = folders[SHARES // 2]
    one, many, alone, all_of_them = [], [], [], []
    with bench.server.daemon() as running, running.requests() as requests:
        daemon.index(requests, folder)
        # In turn, since the machine changes its pace.
        for _ in range(6):
            for stores, reading, listing_them in (([folder], one, alone),
                                                  (folders, many, all_of_them)):
                bench.server.set_stores(stores)
                for _ in range(20):
                    read_folder(requests, folder)
                reading += [read_folder(requests, folder) for _ in range(200)]
                listing_them += [list_shares(requests, SHARES) for _ in range(8)]
    return [ratio_row(f"readSettings of a folder, {SHARES:,} stores : one store",
                      median(many), median(one), STORES_TARGET, "<= 1.2",
                      {"many": many, "one": one}),
            ratio_row(f"    getSharePointList of {SHARES:,} shares, the same",
                      median(all_of_them), median(alone),
                      samples={"many": all_of_them, "one": alone})]


def quotas(bench):
    """Listing the users of the largest quota file, and reading that file."""
    folder = os.path.join(bench.work, "quotas")
    os.makedirs(folder)
    rows = []
    for used, runs in ((QUOTA_USERS, 15), (QUOTA_SLOTS - 1, 3)):
        program = [os.path.join(bench.programs, "bench_quotas"), folder, str(used)]
        run(program)
        file = os.path.join(folder, ".quota.user")
        time_of(["cat", file])
        ours, theirs, grown = [], [], 0
        for _ in range(runs):
            theirs.append(time_of(["cat", file]))
            took, grown = map(int, run(program + ["1"]).split())
            ours.append(took)
        ordinary = used == QUOTA_USERS
        rows.append(ratio_row(f"read_quota_entries : cat, {QUOTA_SLOTS:,} slots, {used:,} in use",
                              median(ours), median(theirs), QUOTAS_TARGET if ordinary else None,
                              samples={"ours": ours, "theirs": theirs}))
        rows.append(Row("    memory besides what was held before", mebibytes(grown)))
    return rows


def privileges(bench):
    """Reading and setting the privileges of folders, and as many POSIX ACLs in one process."""
    folder = os.path.join(bench.work, "privileges")
    theirs = os.path.join(folder, "posix")
    os.makedirs(theirs)
    for number in range(FOLDERS):
        os.mkdir(os.path.join(theirs, str(number)))
    entries = ",".join(f"u:{user}:rx" for user in ("daemon", "bin", "sys", "sync"))
    samples = {"set": ([], []), "get": ([], [])}
    for turn in range(3):
        setting = time_of(["setfacl", "-R", "-m", entries, theirs])
        reading = time_of(["getfacl", "-R", "-p", theirs])
        time_of(["setfacl", "-R", "-b", theirs])
        ours = os.path.join(folder, str(turn))
        os.mkdir(ours)
        line = run([os.path.join(bench.programs, "bench_privileges"), ours, str(FOLDERS)])
        for name, own, other in zip(("set", "get"), map(int, line.split()), (setting, reading)):
            samples[name][0].append(own)
            samples[name][1].append(other)
    return [ratio_row(f"{text}, {FOLDERS:,} folders, 4 entries each", median(samples[name][0]),
                      median(samples[name][1]), PRIVILEGES_TARGET, "<= 2",
                      {"ours": samples[name][0], "theirs": samples[name][1]})
            for name, text in (("get", "privileges read : getfacl"),
                               ("set", "privileges set : setfacl"))]


def counting(bench):
    """Counting a volume of many objects."""
    ours, theirs = [], []
    with Volume(os.path.join(bench.work, "volume")) as volume:
        program = [os.path.join(bench.tree, "usr/sbin/quotascan"), "-u", volume.path]
        du = ["du", "-s", volume.path]
        told = run(program)
        if f"{volume.objects:,} objects counted" not in told:
            raise CannotMeasure(f"quotascan counts other than {volume.objects:,} objects: {told}")
        time_of(du)
        for _ in range(15):
            volume.make_quota_file()
            theirs.append(time_of(du))
            ours.append(time_of(program))
        peak = max(peak_of(program) for _ in range(3))
    return [ratio_row(f"quotascan : du -s, {volume.objects:,} objects", median(ours),
                      median(theirs), COUNTING_TARGET, samples={"ours": ours, "theirs": theirs}),
            Row("    at its highest (VmHWM)", mebibytes(peak), value=peak, target=MEMORY_TARGET,
                target_text="<= 64 MiB")]


def propagation(bench):
    """Pushing owner, group, mode and four entries down a tree, and doing so again."""
    names = ("ours", "plain", "tools", "loop", "again")
    times = {name: [] for name in names}
    with PropagationTree(bench, "propagation") as tree:
        tree.make(2_000, 99)
        # What must be there for the loop, and in the page cache for all.
        run(tree.command())
        loop = tree.time_of_bare_loop()
        for _ in range(ROUNDS):
            for name, step in (("tools", tree.time_of_tools), ("loop", loop),
                               ("plain", lambda: time_of(tree.command(False))),
                               ("ours", lambda: time_of(tree.command()))):
                tree.undo()
                times[name].append(step())
            times["again"].append(time_of(tree.command()))
        objects = tree.objects
    mid = {name: median(samples) for name, samples in times.items()}
    rows = [("copyprivs", "ours", "chown, chmod, setfacl", "tools", PROPAGATION_TARGET),
            ("copyprivs without projection", "plain", "chown, chmod, setfacl", "tools",
             PLAIN_PROPAGATION_TARGET),
            ("copyprivs", "ours", "a bare loop in one thread", "loop", BARE_LOOP_TARGET),
            ("copyprivs with nothing to change", "again", "with everything", "ours",
             UNCHANGED_TARGET)]
    return [ratio_row(f"{what} : {other}, {objects:,} objects", mid[mine], mid[theirs], target,
                      samples={"ours": times[mine], "theirs": times[theirs]})
            for what, mine, other, theirs, target in rows]


def shapes(bench):
    """What pushing takes and holds on trees of several sizes and shapes."""
    rows = []
    trees = [(f"{folders * 100:,} objects, 99 files in each folder", folders, 99)
             for folders in (100, 1_000, 10_000)]
    trees += [("1,000,000 files in one folder", 1, 1_000_000), ("10,000 levels", None, 10_000)]
    for what, folders, count in trees:
        with PropagationTree(bench, "shapes", "3G", 1_200_000) as tree:
            if folders is None:
                tree.make_deep(count)
            else:
                tree.make(folders, count)
            took = time_of(tree.command())
            if folders is not None:
                tree.undo()
            peak = peak_of(tree.command())
        rows.append(Row(f"copyprivs, {what}", milliseconds(took),
                        value_text=f"{took / tree.objects / 1000:.2f} us/object"))
        rows.append(Row("    at its highest (VmHWM)", mebibytes(peak), value=peak,
                        target=MEMORY_TARGET, target_text="<= 64 MiB"))
    return rows


def permissions(bench):
    """What a user of many groups may do with a file of many entries, and who may do anything."""
    folder = os.path.join(bench.work, "permissions")
    os.makedirs(folder)
    tree = PermissionTree(folder, bench.tree)
    tree.fill(os.path.join(bench.programs, "bench_accounts"), USERS, GROUPS, MEMBERSHIPS)
    return effective_rows(tree) + who_rows(tree)


def effective_rows(tree):
    """Of a user of the host, whom id knows too, and of one of "/Local". The last entry decides."""
    gids = list(range(400_000, 400_000 + MEMBERSHIPS))
    others = [(UNIX_GROUP, 500_000 + number) for number in range(ENTRIES - 1)]
    question = [tree.path(PROGRAM), "-p"]
    hosts = question + [tree.file_with("hosts", others + [(UNIX_GROUP, gids[-1])]), "-u", "98765"]
    locals_ = question + [tree.file_with("local", others + [(UNIX_GROUP, 300_000 + MEMBERSHIPS - 1)]),
                          "-u", "99999"]
    theirs = ["id", "paddock-bench"]
    samples = {"hosts": [], "local": [], "theirs": []}
    with host_accounts(tree.folder, "paddock-bench", 98765, gids):
        require_answer(hosts, "2")
        require_answer(locals_, "2")
        if run(theirs).count(",") != MEMBERSHIPS - 1:
            raise CannotMeasure(f"id does not know all of the {MEMBERSHIPS:,} groups")
        for _ in range(15):
            samples["theirs"].append(time_of(theirs))
            samples["hosts"].append(time_of(hosts))
            samples["local"].append(time_of(locals_))
    text = f"effectiveprivs : id, {MEMBERSHIPS:,} groups, {ENTRIES} entries"
    return [ratio_row(text, median(samples["hosts"]), median(samples["theirs"]), EFFECTIVE_TARGET,
                      "<= 3", samples),
            ratio_row("    the groups being in /Local", median(samples["local"]),
                      median(samples["theirs"]))]


def require_answer(command, expected):
    found = run(command).strip()
    if found != expected:
        raise CannotMeasure(f"{' '.join(command)} says {found}, not {expected}")


def who_rows(tree):
    """Everybody of many groups, and some by themselves."""
    principals = [(UNIX_GROUP, 200_000 + number) for number in range(GROUPS)]
    principals += [(UNIX_USER, 100_000 + number) for number in range(ENTRIES - GROUPS)]
    file = tree.file_with("who", principals)
    command = [tree.path(KEELHOUSE), "--root", tree.folder, "who", file]
    # Root is one of them, and the list of people ends after as many as there are users.
    if run(command).count("yes") < USERS:
        raise CannotMeasure(f"keelhouse who tells of fewer than {USERS:,} people")
    samples = [time_of(command) for _ in range(7)]
    peak = max(peak_of([tree.path(PROGRAM), "--who", "-p", file]) for _ in range(3))
    return [Row(f"keelhouse who, {ENTRIES} entries, {USERS:,} users", milliseconds(median(samples)),
                value=median(samples), target=WHO_TARGET, target_text="<= 2 s",
                samples={"ours": samples}),
            Row("    at its highest (VmHWM)", mebibytes(peak), value=peak)]


def sizes_for(wanted):
    """How many share points the wanted measures need at a time."""
    sizes = set(SIZES) if "growth" in wanted else {SHARES}
    return sizes | ({0} if {"change", "writes"} & set(wanted) else set())


ALL = {"memory": memory, "listing": listing, "growth": growth, "exports": exports,
       "change": change, "shares": shares, "writes": writes, "names": names,
       "indexing": indexing, "quotas": quotas,
       "counting": counting, "privileges": privileges, "ldap": ldap,
       "propagation": propagation, "shapes": shapes,
       "permissions": permissions}
