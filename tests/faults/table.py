"""The cases as data: what goes wrong, where, when, and what must hold.

A row of CALLS stands for many cases: each of its faults at each such call that a faultless run makes, once ("17") and
for all calls from there on ("17+"). What must hold:

  sound     what oracle.py asks of every run
  told      besides, full success is only told if nothing is missing
  refused   besides, full success is not told; of a preparation: the log warns
  complete  besides, nothing is missing: the job ends with full success
  again     the process is killed; what stands under a final name is whole, and a second run without a fault completes
"""

SCENARIOS = {
    "card": "one card of videos and photos with a template and a project name, into a folder where names are taken",
    "photos": "one card of twenty photos, which are copied ahead",
    "three": "three cards at once",
    "prepare": "a card erased and prepared",
    "sync": "a card that keeps its files and gets its configuration",
}
# Log, settings and templates are the same in all of them.
EXCEPT = {("home", "photos"), ("home", "three"), ("home", "prepare"), ("home", "sync")}
# Where a run makes more calls of a kind than this, as many of them are spoiled, evenly spread.
MOST = 8

# Call, areas, faults, what must hold. Areas: the first card, the destination, the folder of log, settings and templates.
CALLS = [
    ("open", "card", "EIO EACCES EMFILE ENOENT", "sound"),
    ("open", "destination", "EIO ENOSPC EACCES EROFS EMFILE EDQUOT", "sound"),
    ("open", "home", "EIO EACCES", "sound"),
    ("opendir", "card destination", "EIO EACCES EMFILE", "sound"),
    ("readdir", "card destination", "EIO", "sound"),
    ("read", "card home", "EIO", "sound"),
    ("read", "card home", "EINTR", "complete"),
    ("read", "card home", "short", "complete"),
    ("write", "card destination", "EIO ENOSPC EDQUOT EROFS", "sound"),
    ("write", "home", "ENOSPC EIO", "sound"),
    ("write", "card destination", "EINTR", "complete"),
    ("write", "card destination", "short", "complete"),
    ("copy", "destination", "EIO ENOSPC EDQUOT", "told"),
    ("copy", "destination", "EXDEV ENOSYS EINVAL short", "complete"),
    ("sendfile", "destination", "EIO ENOSPC", "told"),
    ("sendfile", "destination", "short", "complete"),
    ("lseek", "card destination", "EIO", "sound"),
    ("stat", "card destination", "EIO EACCES ENOENT", "sound"),
    ("access", "card destination", "EACCES EIO", "sound"),
    ("fstat", "card destination", "EIO", "sound"),
    ("fstatvfs", "destination card", "EIO", "sound"),
    ("mkdir", "card destination", "ENOSPC EROFS EACCES EIO", "sound"),
    ("rename", "destination", "EIO ENOSPC EROFS EACCES", "sound"),
    ("rename", "destination", "EINVAL", "complete"),
    ("link", "destination", "EIO", "sound"),
    ("unlink", "card destination", "EIO EACCES EBUSY", "sound"),
    ("rmdir", "card", "EIO EBUSY", "sound"),
    ("fsync", "card destination", "EIO ENOSPC", "refused"),
    ("fsync", "home", "EIO ENOSPC", "sound"),
    ("sync_file_range", "destination", "EIO EDQUOT ENOSPC", "told"),
    ("sync_file_range", "destination", "ENOSYS", "complete"),
    ("syncfs", "card destination", "EIO ENOSPC", "refused"),
    ("fchmod", "destination", "EPERM", "complete"),
    ("futimens", "destination", "EPERM", "complete"),
    ("close", "card destination", "EIO", "sound"),
]
# Each of these calls is the process's last, or comes late.
MOMENTS = [
    ("open read write copy rename mkdir unlink sync_file_range fsync syncfs close", "destination", "kill killed",
     "again"),
    ("open stat readdir", "card", "kill", "again"),
    ("write", "home", "kill killed", "again"),
    ("open read stat readdir", "card", "late", "complete"),
    ("open write copy rename sync_file_range syncfs", "destination", "late", "complete"),
]
# Through the window: the simulated controller's options, what is pressed, what must hold.
#
#   done    it succeeds, and at the end the controller is off
#   fails   it is told that it failed
#   told    nothing is told that isn't so
#   again   the same, and once the cable is back it succeeds
#   other   another controller has taken the place of the one that was chosen: it fails, and that one stays as it was
#   closed  the window is closed while the job runs: the program ends, and what it leaves behind is sound
WINDOW = [
    ("", "connect save reset download erase exit", "done"),
    ("--noise --bytewise", "connect save reset download erase exit", "told"),
    ("--old-firmware", "connect save", "told"),
    ("--mute", "connect save reset download erase exit", "fails"),
    ("--off", "save download erase exit", "fails"),
    ("--half-open", "save download erase exit", "fails"),
    ("--busy", "connect save reset download erase exit", "fails"),
    ("--forbidden", "connect download exit", "fails"),
    ("--beside ACME1 --beside FTDI2", "connect erase exit", "done"),
    # The first controller in the list is chosen.
    ("--beside KELPORA0000", "download erase", "fails"),
    ("--replug-after 0 --replug-serial KELPORA0002", "erase", "other"),
    ("--bad-checksum-every 1", "connect save reset download erase", "fails"),
    ("--bad-checksum-every 2", "connect save reset download erase", "told"),
    ("--lose-end-every 3", "connect save download erase", "told"),
    ("--lose-byte-every 3", "connect save download erase", "told"),
    ("--mute-after 1", "connect save reset download erase", "told"),
    ("--delay 1", "connect save reset download erase", "done"),
    ("--delay 3", "save reset download erase exit", "told"),
    ("--erase-time 4", "erase", "done"),
    ("--erase-time 9", "erase", "fails"),
    ("--announce 5", "download", "done"),
    ("--announce 9", "download", "fails"),
    ("--announce 0", "download", "told"),
    ("--boots", "connect save reset download erase exit", "done"),
    ("--leftovers 2", "connect save reset download erase exit", "done"),
    ("--leftovers 9", "connect save download erase exit", "told"),
    ("--unplug-after 0", "connect save reset download erase exit", "told"),
    ("--unplug-after 1", "connect save reset download erase exit", "told"),
    ("--unplug-after 2 --pieces=2", "connect save download erase", "told"),
    ("--unplug-after 6", "download", "told"),
    ("--unplug-after 0 --replug-after 1", "connect save reset download erase", "again"),
    ("--unplug-after 1 --replug-after 1", "connect save reset download erase", "again"),
    ("--no-end", "download", "told"),
    ("--mute", "connect save reset download erase", "closed"),
    ("--no-end", "download", "closed"),
    ("--delay 3 --deaf-in-dump", "connect save download", "closed"),
    ("--erase-time 4", "erase", "closed"),
]
