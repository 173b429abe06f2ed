#pragma once

#include <QDialog>
#include <QList>
#include <QVariantMap>

#include "tasks/parameters.h"

class QLabel;
class QTextBrowser;

// What the program says about its build: version, platform, capabilities and plugins.
class about final : public QDialog
{
    Q_OBJECT
public:
    struct contents
    {
        QString name;
        QString version;
        QString platform;
        parameters capabilities;
        // Each with "ident", "filename" and "status", as the scripting API lists them.
        QList<QVariantMap> plugins;
    };

    explicit about(QWidget* parent = nullptr);
    Q_DISABLE_COPY_MOVE(about)

    void set_contents(const contents& c);
    // The text shown, as HTML.
    QString html() const;

protected:
    void changeEvent(QEvent* event) override;

private:
    void render();

    contents m_contents;
    QLabel* m_logo = nullptr;
    QTextBrowser* m_text = nullptr;
};
