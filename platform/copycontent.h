#pragma once

class QFile;
class StopFlag;

/// Copies the whole content of the open file `source` to the open, empty file `target`, without passing
/// through this process where the system can, with holes kept as holes where the system tells of them, and
/// starts writing it to disk. False on a read or write error, a full disk, or a raised flag, which is tested
/// at least every 4 MiB.
[[nodiscard]] bool copyContent(QFile &source, QFile &target, const StopFlag &stop);

/// Gives `target` the permissions and the modification time of `source`, as far as its file system keeps
/// them. To be called when the content is written.
void copyAttributes(QFile &source, QFile &target);
