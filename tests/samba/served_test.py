#!/usr/bin/python3
"""What keelhouse says of share points over SMB is what an smbd makes of them.

    served_test.py CMAKE BUILD_FOLDER

Needs root, for namespaces of its own.
"""
import contextlib
import os

from published_shares import SharesTest
from smb_world import run_tests

NOT_SERVED = 5  # keelhouse's exit status with --require-served


class ServedTest(SharesTest):

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        tree = cls.world.paddock.tree
        for program in ("testparm", "smbclient"):
            path = os.path.join(tree, "usr/bin", program)
            with open(path, "w", encoding="ascii") as file:
                file.write('#!/bin/sh\nexec /usr/bin/%s "$@"\n' % program)
            os.chmod(path, 0o755)
        cls.configuration = os.path.join(tree, "etc/samba/smb.conf")
        if not os.path.lexists(cls.configuration):
            os.makedirs(os.path.dirname(cls.configuration), exist_ok=True)
            os.symlink(cls.world.samba.configuration, cls.configuration)

    def setUp(self):
        """Of anna alone to write to, so that nothing is to be warned of."""
        super().setUp()
        self._give(0o755, "anna", "root")

    def run_keelhouse(self, *words):
        """Its exit status and what it wrote to standard error."""
        ended = self.world.paddock._run(*words)  # pylint: disable=protected-access
        return ended.returncode, ended.stderr

    def add(self, name, *words):
        return self.run_keelhouse("share", "add", self.path, "--smb-name", name, "--no-ftp", "--no-vsp", *words)

    def listed(self):
        """`share list --check`."""
        return self.world.paddock.keelhouse("share", "list", "--check")

    @contextlib.contextmanager
    def configured(self, change):
        """With smb.conf's text changed by the function."""
        path = self.world.samba.configuration
        with open(path, encoding="utf-8") as file:
            before = file.read()
        self.replace(path, change(before))
        try:
            yield
        finally:
            self.replace(path, before)

    def replace(self, path, text):
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        self.reload()

    def reload(self):
        os.system("smbcontrol -s %s smbd reload-config" % self.world.samba.configuration)

    def test_a_share_that_clients_find_is_served(self):
        status, said = self.add("Plans", "--require-served")
        self.assertEqual((status, said), (0, "Shared over SMB as Plans\n"))
        self.assertTrue(self.session("anna", "Plans").write("minutes", b"nine"))
        self.assertRegex(self.listed(), "%s +there +served " % self.path)

    def test_a_section_made_by_hand_is_no_free_name(self):
        other = self.make("other")
        with self.configured(lambda text: text + "\n[Shadow]\npath = %s\n" % other):
            status, said = self.add("shadow")
            self.assertEqual(status, 1)
            self.assertIn('the name over SMB, "shadow", is taken: the section [Shadow] of ', said)
            self.assertIn("Nothing was changed.\n", said)
            self.assertEqual(self.world.paddock.keelhouse("share", "list"), "No folder is shared.\n")

    def test_a_section_made_by_hand_shadows_a_share(self):
        other = self.make("other")
        with open(os.path.join(other, "of the other"), "w", encoding="ascii"):
            pass
        self.add("Shadow")
        with self.configured(lambda text: text + "\n[Shadow]\npath = %s\n" % other):
            self.await_content("Shadow", "of the other")
            self.assertIn("%s: SMB: not served: the section [Shadow] of Samba's configuration has the path %s"
                          % (self.path, other), self.listed())

    def await_content(self, share, name):
        for _ in range(600):
            if name in (self.session("anna", share).names("") or ()):
                return
        self.fail("%s is not in the share %s" % (name, share))

    def test_a_file_that_is_not_included_serves_nothing(self):
        include = "include = " + self.world.published
        with self.configured(lambda text: text.replace(include, "")):
            status, said = self.add("Plans", "--require-served")
            self.assertEqual(status, NOT_SERVED)
            self.assertIn("SMB: not served: %s does not include %s (add the line: %s)"
                          % (self.configuration, self.world.published, include), said)
            self.assert_no_share("Plans")

    def test_a_stopped_server_serves_nothing(self):
        samba = self.world.samba
        samba.stop(samba.processes[-1])
        try:
            status, said = self.add("Plans", "--require-served")
            self.assertEqual((status, said),
                             (NOT_SERVED, "SMB: not served: smbd is stopped (systemctl start smbd)\n"))
            self.assertEqual(self.run_keelhouse("share", "set", self.path, "--smb-name", "Others"),
                             (0, "SMB: not served: smbd is stopped (systemctl start smbd)\n"))
        finally:
            samba.start_smbd()
        self.assertRegex(self.listed(), "%s +there +served " % self.path)

    def test_a_server_that_has_not_read_it_serves_nothing(self):
        """Its configuration is another one than testparm reads."""
        read_by_nobody = os.path.join(self.world.samba.folder, "other.conf")
        with open(read_by_nobody, "w", encoding="utf-8") as file:
            file.write("%s\n[Plans]\npath = %s\n" % (self.world.samba.global_section(), self.path))
        self.world.paddock.put_share_point("plans", self.path, "Plans")
        os.remove(self.configuration)
        os.symlink(read_by_nobody, self.configuration)
        try:
            self.assertIn("SMB: not served: the smbd that runs does not know the share", self.listed())
            self.assert_no_share("Plans")
        finally:
            os.remove(self.configuration)
            os.symlink(self.world.samba.configuration, self.configuration)

    def test_a_folder_that_is_gone_is_not_served(self):
        self.add("Plans")
        os.rmdir(self.path)
        self.assertRegex(self.listed(), "%s +gone +not served " % self.path)
        self.assertIn("SMB: not served: its folder is gone\n", self.listed())

    def test_names_that_are_reserved_or_taken_are_refused(self):
        first = self.make("first")
        self.assertEqual(self.run_keelhouse("share", "add", first, "--smb-name", "Plans", "--no-ftp",
                                            "--no-vsp")[0], 0)
        for name, why in (("IPC$", "is one that Samba keeps for itself"), ("pLANS", "is taken by " + first)):
            status, said = self.add(name)
            self.assertEqual(status, 1)
            self.assertIn('the name over SMB, "%s", %s\n' % (name, why), said)
        self.assertEqual(set(self.listing()), {"Plans"})

    def test_a_name_that_is_made_unique_is_announced(self):
        folders = [self.make("one"), self.make("two")]
        paths = [os.path.join(folder, "photos") for folder in folders]
        for path in paths:
            os.mkdir(path)
        self.run_keelhouse("share", "add", paths[0], "--no-ftp", "--no-vsp")
        status, said = self.run_keelhouse("share", "add", paths[1], "--no-ftp", "--no-vsp")
        self.assertEqual(status, 0)
        self.assertIn("photos was taken by %s: photos-1 (record, VSP, SMB)\n" % paths[0], said)
        self.assertIn("Shared over SMB as photos-1\n", said)
        self.assertEqual(set(self.listing()), {"photos", "photos-1"})

    def test_a_removed_folder_that_smb_conf_serves_is_said(self):
        self.add("Plans")
        with self.configured(lambda text: text + "\n[By hand]\npath = %s\n" % self.path):
            status, said = self.run_keelhouse("share", "remove", self.path)
            self.assertEqual(status, 0)
            self.assertIn("is served all the same: Shared over SMB as By hand (by a section of smb.conf)\n", said)


if __name__ == "__main__":
    run_tests(__file__)
