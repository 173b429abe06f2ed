#include "ui/problem_report.h"

#include <QDateTime>
#include <QDialogButtonBox>
#include <QEvent>
#include <QHeaderView>
#include <QTableView>
#include <QVBoxLayout>

problem_report::problem_report(QWidget* parent)
    : QDialog(parent)
{
    setObjectName(QStringLiteral("problem_report"));
    setWindowTitle(tr("Issues report"));

    m_table = new QTableView(this);
    m_table->setObjectName(QStringLiteral("tableView"));
    m_table->setModel(&m_model);
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setWordWrap(false);
    m_table->verticalHeader()->hide();
    m_table->horizontalHeader()->setStretchLastSection(true);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    buttons->setObjectName(QStringLiteral("buttonBox"));
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_table);
    layout->addWidget(buttons);
    resize(720, 320);
}

void problem_report::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::LanguageChange) {
        setWindowTitle(tr("Issues report"));
        m_table->horizontalHeader()->headerDataChanged(Qt::Horizontal, 0, m_model.columnCount() - 1);
    }
    QDialog::changeEvent(event);
}

void problem_report::add(const QDateTime& when, const QString& task, const QString& endpoint, const QString& serial,
    const QString& description)
{
    m_model.append(when.toString(QStringLiteral("HH:mm:ss")), task, endpoint, serial, description);
    m_table->scrollToBottom();
}
