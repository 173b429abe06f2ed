#pragma once

// Answers the message boxes of a widget test as they show up. Header-only.
#include <QApplication>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QTimer>

#include <functional>

// Answers every message box with the button `choose` picks (Ok, or a close, when none is given or the box hasn't
// the button), and keeps what each said. The watch ends with the object.
class box_answers
{
public:
    struct seen {
        QString title;
        QString text;
        QString informative;
    };
    using chooser = std::function<QMessageBox::StandardButton(const QMessageBox&)>;

    explicit box_answers(chooser choose = {})
    {
        m_timer.setInterval(20);
        QObject::connect(&m_timer, &QTimer::timeout, [this, choose] {
            auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            if (!box || box == m_last)
                return;
            m_last = box;
            boxes.append({ box->windowTitle(), box->text(), box->informativeText() });
            if (QAbstractButton* button = box->button(choose ? choose(*box) : QMessageBox::Ok))
                button->click();
            else
                box->reject();
        });
        m_timer.start();
    }
    // "title: text" of each box so far.
    QStringList texts() const
    {
        QStringList out;
        for (const seen& b : boxes)
            out << b.title + ": " + b.text;
        return out;
    }

    QList<seen> boxes;

private:
    QTimer m_timer;
    QPointer<QMessageBox> m_last;
};
