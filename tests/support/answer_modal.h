#pragma once

// Answers the next modal dialog of a widget test. Header-only.
#include <QApplication>
#include <QTimer>
#include <QWidget>

#include <functional>
#include <memory>

// Answers the next modal dialog when it shows up: the handler gets it and closes it. The
// watch ends with the returned object, so a handler never outlives what it refers to.
inline std::unique_ptr<QTimer> answer_modal(std::function<void(QWidget*)> handler)
{
    auto timer = std::make_unique<QTimer>();
    timer->setInterval(20);
    QTimer* t = timer.get();
    QObject::connect(t, &QTimer::timeout, [t, handler] {
        if (QWidget* modal = QApplication::activeModalWidget()) {
            t->stop();
            handler(modal);
        }
    });
    t->start();
    return timer;
}
