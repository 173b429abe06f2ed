#include "tasks/task_list_file.h"

#include "delivery/task_list_password.h"

#include <QFile>
#include <QTemporaryDir>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

// The parser reads a file by path, so each input is written to one temporary file first.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static QTemporaryDir dir;
    if (!dir.isValid())
        std::abort();
    const QString path = dir.filePath(QStringLiteral("tasks.csv"));
    {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            std::abort();
        file.write(reinterpret_cast<const char*>(data), qint64(size));
    }

    const tasks::task_list_file list = tasks::task_list_file::import_file(path);
    if (list.failed || list.format > 3)
        std::abort();
    for (const endpoint& record : list.records) {
        if (record.host.isEmpty())
            std::abort();
        const endpoint plain = tasks::task_list_file::opened(record, delivery::decrypt_task_list_password);
        tasks::task_list_file::export_line(plain, false, {});
    }
    return 0;
}
