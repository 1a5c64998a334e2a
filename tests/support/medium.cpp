#include "tests/support/medium.h"

#include "tests/support/workspace.h"

Medium::Medium(const Workspace &workspace, const QString &kind, const QString &name)
    : root_(workspace.makeFolder(name))
{
    if (kind == QLatin1String("tmpfs")) {
        memory_ = std::make_unique<TestVolume>(root_, 256 * 1024);
        why_ = memory_->why();
    } else if (kind != QLatin1String("folder")) {
        const auto format = kind == QLatin1String("exfat") ? LoopVolume::Kind::Exfat : LoopVolume::Kind::Ext4;
        image_ =
            std::make_unique<LoopVolume>(format, workspace.path(name + QStringLiteral(".image")), 500, root_);
        if (!image_->isMounted())
            why_ = image_->why();
    }
}
