#pragma once

#include <QString>

// A small file system for tests of a full disk: the test runs itself again in a mount namespace of its own
// (`unshare -m`), with a tmpfs of a few KiB mounted at a fresh folder. Nothing outside that process sees it.
namespace small_disk
{

// Whether such a namespace can be made here; why not otherwise.
bool available(QString* why = nullptr);
// Runs this executable's function (and row) again on a disk of `kib` KiB; true when it passed.
bool run(const QString& function, const QString& tag, int kib, QString* output);
// Whether this process is one that run() started.
bool requested();
// There: the folder the small disk is mounted at; empty when it isn't mounted after all.
QString folder();

} // namespace small_disk

// Runs the current test again on a small disk of its own and passes or fails with it; the inner run carries on
// past this point, with small_disk::folder() set.
#define RUN_ON_SMALL_DISK(kib)                                                                                         \
    do {                                                                                                               \
        if (!small_disk::requested()) {                                                                                \
            QString why_not_small_disk;                                                                                \
            if (!small_disk::available(&why_not_small_disk))                                                           \
                QSKIP(qPrintable(why_not_small_disk));                                                                 \
            QString small_disk_output;                                                                                 \
            QVERIFY2(small_disk::run(QString::fromLatin1(QTest::currentTestFunction()),                                \
                         QString::fromLatin1(QTest::currentDataTag()), (kib), &small_disk_output),                     \
                qPrintable(small_disk_output));                                                                        \
            return;                                                                                                    \
        }                                                                                                              \
        QVERIFY2(!small_disk::folder().isEmpty(), "the small disk isn't mounted");                                     \
    } while (false)
