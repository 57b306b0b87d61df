"""The value of the ACL attribute, as Samba's own libraries write and read it."""
import random

from samba.dcerpc import xattr
from samba.ndr import ndr_pack, ndr_unpack


def in_attribute(version, descriptor, details=random.Random(0)):
    """The attribute's value as Samba writes it."""
    info = descriptor
    if version == 2:
        info = xattr.security_descriptor_hash_v2()
        info.hash = [details.randrange(256) for _ in range(16)]
    elif version == 3:
        info = xattr.security_descriptor_hash_v3()
    elif version == 4:
        info = xattr.security_descriptor_hash_v4()
        info.description = "x" * details.randrange(20)
        info.time = details.getrandbits(63)
        info.sys_acl_hash = [details.randrange(256) for _ in range(64)]
    if version > 2:
        info.hash_type = details.randrange(2)
        info.hash = [details.randrange(256) for _ in range(64)]
    if version > 1:
        info.sd = descriptor
    value = xattr.NTACL()
    value.version = version
    value.info = info
    return ndr_pack(value)


def version_and_descriptor_in(value):
    """Raises RuntimeError when Samba cannot read it."""
    ntacl = ndr_unpack(xattr.NTACL, value)
    return ntacl.version, ntacl.info if ntacl.version == 1 else ntacl.info.sd


def descriptor_in(value):
    return version_and_descriptor_in(value)[1]
