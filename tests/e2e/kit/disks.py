"""Volumes on disks, from which a file can be read past the system's memory."""

import os
import subprocess


class Volumes:
    """For a test with a `folder` of its own in a session that can mount."""

    def volume(self, kind, name="disk", image=None, size_mib=64, making=(), mounting=()):
        """A volume of that kind in an image; returns its path."""
        folder = os.path.join(self.folder, name)
        os.makedirs(folder)
        if image is None:
            image = folder + ".image"
            with open(image, "wb") as file:
                file.truncate(size_mib << 20)
        maker = ["mkfs.exfat"] if kind == "exfat" else ["mkfs.ext4", "-q", "-F", *making]
        subprocess.run([*maker, image], check=True, stdout=subprocess.DEVNULL)
        return self.mount(kind, folder, image, *mounting)

    def mount(self, kind, folder, image, *options):
        device = subprocess.run(["losetup", "--find", "--show", image], check=True, stdout=subprocess.PIPE,
                                text=True).stdout.strip()
        mounter = ["mount.exfat-fuse"] if kind == "exfat" else ["mount", "-t", kind, *options]
        subprocess.run([*mounter, device, folder], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        subprocess.run(["losetup", "--detach", device], check=True)
        self.addCleanup(subprocess.run, ["umount", "--lazy", folder], stderr=subprocess.DEVNULL)
        return folder
