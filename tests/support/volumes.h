#pragma once

#include <QString>
#include <QtGlobal>

/// Gives the process a mount namespace of its own, as root or through a user namespace. To be called before
/// any thread is started. Where neither is allowed, mounts fail later and their tests are skipped.
void enterMountNamespace();

/// A tmpfs mounted for a test; unmounted on destruction.
class TestVolume
{
    Q_DISABLE_COPY(TestVolume)

public:
    /// Creates the folder `mountPoint` and mounts `sizeKiB` kibibytes there under the device name `name`.
    TestVolume(const QString &mountPoint, int sizeKiB, const QString &name = QStringLiteral("card"));
    ~TestVolume();

    /// False where this machine forbids mounts: skip the test, giving why().
    [[nodiscard]] bool isMounted() const { return mounted_; }
    [[nodiscard]] const QString &why() const { return why_; }

    /// Mounts it read-only, as a card with its switch set.
    [[nodiscard]] bool makeReadOnly();
    /// Pulls it out: what is open stays readable, the path is empty at once.
    [[nodiscard]] bool pull();

private:
    QString mountPoint_;
    QString why_;
    bool mounted_ = false;
};

/// Skips the current test when the volume could not be mounted here.
#define SKIP_UNLESS_MOUNTED(volume)                                                                          \
    do {                                                                                                     \
        if (!(volume).isMounted())                                                                           \
            QSKIP(qPrintable((volume).why()));                                                               \
    } while (false)
