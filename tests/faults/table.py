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
