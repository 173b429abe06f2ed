#include "ui/about.h"

#include "ui/resource_init.h"

#include <QDialogButtonBox>
#include <QEvent>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QTextBrowser>
#include <QVBoxLayout>

namespace {

QString cell(const QString& text)
{
    return QStringLiteral("<td>%1</td>").arg(text.toHtmlEscaped());
}

} // namespace

about::about(QWidget* parent)
    : QDialog(parent)
{
    init_ui_resources();
    setObjectName(QStringLiteral("about"));

    m_logo = new QLabel(this);
    m_logo->setPixmap(QIcon(QStringLiteral(":/icn/main")).pixmap(64, 64));
    m_logo->setAlignment(Qt::AlignTop | Qt::AlignHCenter);
    m_text = new QTextBrowser(this);
    m_text->setObjectName(QStringLiteral("text"));
    m_text->setFrameShape(QFrame::NoFrame);
    m_text->viewport()->setAutoFillBackground(false);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

    auto* top = new QHBoxLayout;
    top->addWidget(m_logo);
    top->addWidget(m_text, 1);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(top);
    layout->addWidget(buttons);
    render();
    resize(520, 440);
}

void about::set_contents(const contents& c)
{
    m_contents = c;
    render();
}

QString about::html() const
{
    return m_text->toHtml();
}

void about::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::LanguageChange)
        render();
    QDialog::changeEvent(event);
}

void about::render()
{
    setWindowTitle(tr("About %1").arg(m_contents.name));
    QString out = QStringLiteral("<h2>%1</h2><p>%2<br>%3</p>")
                      .arg(m_contents.name.toHtmlEscaped(), tr("Version: %1").arg(m_contents.version.toHtmlEscaped()),
                          tr("Platform: %1").arg(m_contents.platform.toHtmlEscaped()));

    out += QStringLiteral("<h3>%1</h3><table cellpadding='2'>").arg(tr("Capabilities"));
    for (auto it = m_contents.capabilities.cbegin(); it != m_contents.capabilities.cend(); ++it)
        out += QStringLiteral("<tr>%1%2</tr>").arg(cell(it.key()), cell(it.value().toString()));
    out += QStringLiteral("</table>");

    out += QStringLiteral("<h3>%1</h3>").arg(tr("Plugins"));
    if (m_contents.plugins.isEmpty()) {
        out += QStringLiteral("<p>%1</p>").arg(tr("No plugins are loaded."));
    } else {
        out += QStringLiteral("<table cellpadding='2'><tr><th>%1</th><th>%2</th><th>%3</th></tr>")
                   .arg(tr("Identifier"), tr("File"), tr("State"));
        for (const QVariantMap& plugin : m_contents.plugins) {
            const QString ident = plugin.value(QStringLiteral("ident")).toString();
            out += QStringLiteral("<tr>%1%2%3</tr>")
                       .arg(cell(ident.isEmpty() ? QStringLiteral("---") : ident),
                           cell(plugin.value(QStringLiteral("filename")).toString()),
                           cell(plugin.value(QStringLiteral("status")).toString()));
        }
        out += QStringLiteral("</table>");
    }
    m_text->setHtml(out);
}
