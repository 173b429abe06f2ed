#pragma once

#include "app/core.h"

#include <QTemporaryDir>

#include <memory>

// A core in batch mode with its files in a temporary folder, and the flows it ran
// counted: what integration tests drive devices through.
class core_fixture
{
public:
    core_fixture();
    virtual ~core_fixture();
    Q_DISABLE_COPY_MOVE(core_fixture)

    // A row added by hand (never discovered); its flow ident.
    QString add_row(const QString& host, uint16_t port, const QString& password = QString());
    // Only these lines take part in the next composition.
    void select_only(const QStringList& idents);
    // The flow's stored result; "Done" when it stored none.
    tasks::common_data result(const QString& ident) const;
    QString log_text() const;

    QTemporaryDir dir;
    std::unique_ptr<core> c;
    int started = 0;
    int ended = 0;
    // The most flows the manager had running at once, counted as each was admitted.
    int peak = 0;
};
