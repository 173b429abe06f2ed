#pragma once

#include <QDialog>

#include "ui/problems.h"

class QDateTime;
class QTableView;

// The failures of the session, one row each, for the user to read at leisure.
class problem_report final : public QDialog
{
    Q_OBJECT
public:
    explicit problem_report(QWidget* parent = nullptr);
    Q_DISABLE_COPY_MOVE(problem_report)

    // Appends a row; the time shows as "HH:mm:ss".
    void add(const QDateTime& when, const QString& task, const QString& endpoint, const QString& serial,
        const QString& description);
    const problems& model() const { return m_model; }

protected:
    void changeEvent(QEvent* event) override;

private:
    problems m_model;
    QTableView* m_table = nullptr;
};
