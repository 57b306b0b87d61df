"""Who is there, in tests about access."""

USERS = {"root": 0, "anna": 21001, "bert": 21002, "carl": 21003, "dora": 21004, "emil": 21005}
GROUPS = {"crew": 21100, "night": 21200}
MEMBERS = {"crew": ("bert", "dora"), "night": ("dora", "emil")}
PLAIN_USERS = [name for name in USERS if name != "root"]


def gids_of(user):
    """The own group first."""
    return [USERS[user]] + [GROUPS[group] for group in GROUPS if user in MEMBERS[group]]
