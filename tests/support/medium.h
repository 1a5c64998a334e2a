#pragma once

#include "tests/support/loopvolume.h"
#include "tests/support/volumes.h"

#include <QString>

#include <memory>

class Workspace;

/// A folder for a test on a medium of a kind: "folder" is a plain one, "tmpfs", "ext4" and "exfat" are
/// volumes of their own.
class Medium
{
    Q_DISABLE_COPY(Medium)

public:
    Medium(const Workspace &workspace, const QString &kind, const QString &name = QStringLiteral("card"));

    /// False where this machine can't have such a one: skip the test, giving why().
    [[nodiscard]] bool isMounted() const { return why_.isEmpty(); }
    [[nodiscard]] const QString &why() const { return why_; }
    [[nodiscard]] const QString &root() const { return root_; }
    /// The volume of kind "tmpfs", else null.
    [[nodiscard]] TestVolume *volume() const { return memory_.get(); }

private:
    QString root_;
    QString why_;
    std::unique_ptr<TestVolume> memory_;
    std::unique_ptr<LoopVolume> image_;
};
