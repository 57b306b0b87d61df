"""Share points that synchronize-shares publishes, as the clients of an smbd find them."""
import os
import time

from smb_world import CAREFUL_SHARE, SHARE, Session, SmbTest, session_context

from samba import NTSTATUSError, ntstatus
from samba.dcerpc import srvsvc

PATIENCE = 60  # seconds, for a server that is told to read its configuration again


class SharesTest(SmbTest):
    """Each test has a folder of its own; what it publishes is gone at its end."""

    def setUp(self):
        super().setUp()
        self.make_folder(0o777)
        self.addCleanup(self.unpublish)

    def unpublish(self):
        self.world.paddock.delete_share_points()
        self.world.paddock.synchronize()
        self.await_listing(lambda names: not names)

    def listing(self):
        """Share -> comment, without those that the server has without us."""
        smb = srvsvc.srvsvc("ncacn_np:127.0.0.1", *session_context(self.world.samba.configuration, "anna"))
        wanted = srvsvc.NetShareInfoCtr()
        wanted.level = 1
        wanted.ctr = srvsvc.NetShareCtr1()
        shares = smb.NetShareEnumAll(None, wanted, 0xffffffff, 0)[0].ctr.array
        return {share.name: share.comment for share in shares
                if share.type == srvsvc.STYPE_DISKTREE and share.name not in (SHARE, CAREFUL_SHARE)}

    def await_listing(self, is_right):
        """The listing, once it is right."""
        deadline = time.monotonic() + PATIENCE
        while True:
            listed = self.listing()
            if is_right(listed):
                return listed
            self.assertLess(time.monotonic(), deadline, "listed are %s" % listed)
            time.sleep(0.1)

    def share(self, name, *words):
        self.world.paddock.keelhouse("share", "add", self.path, "--smb-name", name, *words)
        self.await_listing(lambda names: name in names)

    def session(self, user, name):
        return Session(self.world.samba.configuration, user, name)

    def assert_no_share(self, name):
        with self.assertRaises(NTSTATUSError) as raised:
            self.session("anna", name)
        self.assertEqual(raised.exception.args[0], ntstatus.NT_STATUS_BAD_NETWORK_NAME)

    def make(self, name):
        path = os.path.join(self.path, name)
        os.mkdir(path)
        return path
