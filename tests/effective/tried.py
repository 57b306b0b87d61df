"""What processes of a user can really do with a file or folder."""
import os
import stat

READ, WRITE, SEARCH = 1, 2, 4
# Bits of an entry, for what is tried: reading and listing, writing and making, executing and searching.
BIT_OF = {READ: 2, WRITE: 4, SEARCH: 8}
INSIDE = "inside"  # a file that every folder here holds


def as_ids(uid, gids, function):
    """What the function, which is to return a number below 128, returns under the ids."""
    child = os.fork()
    if child == 0:
        number = 255
        try:
            os.setgroups(gids)
            os.setresgid(gids[0], gids[0], gids[0])
            os.setresuid(uid, uid, uid)
            number = function()
        finally:
            os._exit(number)
    number = os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])
    assert 0 <= number < 128, "a step as %d broke down" % uid
    return number


def tried(path, uid, gids):
    """The sum of what the user can do."""
    is_folder = stat.S_ISDIR(os.stat(path).st_mode)
    return as_ids(uid, gids, lambda: try_folder(path) if is_folder else try_file(path))


def is_parted(path, uid, gids):
    """Whether one group lets the user write and another one search: the kernel wants both of one, and lets
    nobody make something in such a folder."""
    def ask():
        return (os.access(path, os.W_OK) and os.access(path, os.X_OK) and not os.access(path, os.W_OK | os.X_OK))
    return bool(as_ids(uid, gids, ask))


def works(step, *arguments):
    try:
        step(*arguments)
        return True
    except PermissionError:
        return False


def opens(path, flags):
    os.close(os.open(path, flags, 0o600))


def try_file(path):
    return (READ * works(opens, path, os.O_RDONLY) + WRITE * works(opens, path, os.O_WRONLY) +
            SEARCH * os.access(path, os.X_OK))


def try_folder(path):
    """Making something needs the right to search, too: it counts as writing only where both are there."""
    return (READ * works(os.listdir, path) + WRITE * works(make_in, path) +
            SEARCH * works(os.stat, os.path.join(path, INSIDE)))


def make_in(path):
    new = os.path.join(path, "new")
    opens(new, os.O_WRONLY | os.O_CREAT | os.O_EXCL)
    os.unlink(new)


def wanted(bitmap, path, uid, gids):
    """What a user with these permissions should be able to do."""
    sum_of = sum(one for one, bit in BIT_OF.items() if bitmap & bit)
    if stat.S_ISDIR(os.stat(path).st_mode) and (not sum_of & SEARCH or is_parted(path, uid, gids)):
        return sum_of & ~WRITE
    return sum_of
