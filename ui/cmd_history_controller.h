#pragma once

#include <QObject>
#include <QStringList>

// The lines entered in the console, walked with Up and Down on its input. Installed as an
// event filter on the input; the key events go on to it.
class cmd_history_controller final : public QObject
{
    Q_OBJECT
public:
    static constexpr int max_items = 32;

    explicit cmd_history_controller(QObject* parent = nullptr);
    Q_DISABLE_COPY_MOVE(cmd_history_controller)

    // A line entered: kept at the end unless it repeats the last one; the oldest goes past
    // the limit. The position moves past the end either way.
    void add(const QString& line);
    const QStringList& items() const { return m_items; }
    int position() const { return m_position; }
    // The item at the position; empty past the end.
    QString current() const { return m_items.value(m_position); }

signals:
    void history_prev();
    void history_next();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QStringList m_items;
    int m_position = 0;
};
