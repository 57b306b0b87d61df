"""Requests that differ from a good one in one key."""
import copy

MISSING = object()

# What may stand where something else is wanted, as JSON has it.
OTHER_VALUES = {
    "missing": MISSING, "null": None, "an empty text": "", "a text": "no such thing",
    "a number as text": "7", "a text of two lines": "a\nb", "a text with a NUL": "a\0b",
    "a long text": "x" * 70000, "0": 0, "1": 1, "a negative number": -1,
    "the largest number": 2 ** 64 - 1, "the largest signed number": 2 ** 63 - 1,
    "the lowest number": -2 ** 63, "true": True, "false": False, "an empty array": [],
    "an array": ["x", 7, {"x": []}], "an array of arrays": [[]], "an empty dictionary": {},
    "a dictionary": {"x": 1, "path": 7}, "empty data": {"$data": ""}, "data": {"$data": "AAECAw=="}}

# One of each kind, for operations that take long.
FEW = ("missing", "an empty text", "a text", "1", "a negative number", "the largest number", "false",
       "an array", "an empty array", "a dictionary", "data")


def places(value, above=()):
    """Of every key of a dictionary and every element of an array, as tuples of keys and indexes."""
    items = (value.items() if isinstance(value, dict) else
             enumerate(value) if isinstance(value, list) else ())
    for key, item in items:
        yield above + (key,)
        yield from places(item, above + (key,))


def changed(request, place, value):
    """A copy with this value at this place."""
    result = copy.deepcopy(request)
    inner = result
    for key in place[:-1]:
        inner = inner[key]
    if value is MISSING:
        del inner[place[-1]]
    else:
        inner[place[-1]] = value
    return result


def variants(request, names=tuple(OTHER_VALUES)):
    """Of each place and other value: a description and the request."""
    for place in places(request):
        for name in names:
            yield "%s is %s" % ("/".join(map(str, place)), name), changed(request, place, OTHER_VALUES[name])
