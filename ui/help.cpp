#include "ui/help.h"

#include "ui/resource_init.h"

#include <QEvent>
#include <QFile>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QLocale>
#include <QSettings>
#include <QSplitter>
#include <QTextBrowser>
#include <QTreeWidget>
#include <QTreeWidgetItemIterator>
#include <QVBoxLayout>

namespace {

const QString fallback_language = QStringLiteral("en_US");

// The full key of a setting of the dialog.
QString key(const char* name)
{
    return help::settings_group + QLatin1Char('/') + QLatin1String(name);
}

} // namespace

help::help(QSettings& settings, QWidget* parent)
    : QDialog(parent)
    , m_settings(settings)
{
    init_ui_resources();
    setObjectName(QStringLiteral("help"));

    m_search = new QLineEdit(this);
    m_search->setObjectName(QStringLiteral("search"));
    m_index = new QTreeWidget(this);
    m_index->setObjectName(QStringLiteral("index"));
    m_index->setHeaderHidden(true);
    m_doc = new QTextBrowser(this);
    m_doc->setObjectName(QStringLiteral("doc"));
    // Links are the dialog's to follow: a special link must never be loaded as a page.
    m_doc->setOpenLinks(false);

    auto* side = new QWidget(this);
    auto* side_layout = new QVBoxLayout(side);
    side_layout->setContentsMargins(0, 0, 0, 0);
    side_layout->addWidget(m_search);
    side_layout->addWidget(m_index);

    m_splitter = new QSplitter(Qt::Horizontal, this);
    m_splitter->setObjectName(QStringLiteral("splitter"));
    m_splitter->addWidget(side);
    m_splitter->addWidget(m_doc);
    m_splitter->setStretchFactor(1, 1);
    m_splitter->setSizes({ 220, 680 });

    auto* layout = new QHBoxLayout(this);
    layout->addWidget(m_splitter);

    connect(m_index, &QTreeWidget::itemActivated, this, &help::on_index_itemActivated);
    connect(m_index, &QTreeWidget::itemClicked, this, &help::on_index_itemActivated);
    connect(m_doc, &QTextBrowser::anchorClicked, this, &help::on_doc_anchorClicked);
    connect(m_search, &QLineEdit::textEdited, this, &help::on_search_textEdited);
    connect(m_search, &QLineEdit::returnPressed, this, &help::on_search_returnPressed);

    setWindowTitle(tr("Help"));
    m_search->setPlaceholderText(tr("Search..."));
    m_page = cmd_reference;
    build_tree();
    resize(960, 640);
}

void help::open_page(const QString& base)
{
    m_page = base;
    for (QTreeWidgetItemIterator it(m_index); *it; ++it) {
        if ((*it)->data(0, Qt::UserRole).toString() == base)
            m_index->setCurrentItem(*it);
    }
    load_page();
}

QString help::page_language() const
{
    const QString chosen = m_settings.value(key("locale_override")).toString();
    return chosen.isEmpty() ? QLocale().name() : chosen;
}

QString help::read_resource(const QString& base, const QString& language)
{
    QString path = QStringLiteral("%1.%2").arg(base, language);
    if (!QFile::exists(path))
        path = QStringLiteral("%1.%2").arg(base, fallback_language);
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.readAll());
}

void help::on_index_itemActivated(QTreeWidgetItem* item, int column)
{
    const QString base = item ? item->data(0, Qt::UserRole).toString() : QString();
    if (!base.isEmpty())
        open_page(base);
}

void help::on_doc_anchorClicked(const QUrl& url)
{
    if (url.scheme() != QLatin1String("special")) {
        // A page's own table of contents points into the page itself.
        if (url.isRelative() && url.path().isEmpty() && url.hasFragment())
            m_doc->scrollToAnchor(url.fragment());
        return;
    }
    const QString first = url.path().split(QLatin1Char('/'), Qt::SkipEmptyParts).value(0);
    const QString authority = url.host();
    if (authority == QLatin1String("set_lang")) {
        m_settings.setValue(key("locale_override"),
            first == QLatin1String("default") ? QString() : first);
        load_page();
    } else if (authority == QLatin1String("execute_commands")) {
        m_settings.setValue(key("execute_commands"), first.toUInt() != 0);
        load_page();
    } else if (authority == QLatin1String("ov_command")) {
        emit cmd_clicked(first, execute_commands());
    }
}

void help::on_search_textEdited(const QString& text)
{
    QTextCursor top = m_doc->textCursor();
    top.movePosition(QTextCursor::Start);
    m_doc->setTextCursor(top);
    m_doc->find(text);
}

void help::on_search_returnPressed()
{
    const QString text = m_search->text();
    if (text.isEmpty() || m_doc->find(text))
        return;
    QTextCursor top = m_doc->textCursor();
    top.movePosition(QTextCursor::Start);
    m_doc->setTextCursor(top);
    m_doc->find(text);
}

void help::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::LanguageChange) {
        setWindowTitle(tr("Help"));
        m_search->setPlaceholderText(tr("Search..."));
        build_tree();
        // The settings page shows its values in the program's language.
        if (isVisible())
            load_page();
    }
    QDialog::changeEvent(event);
}

void help::showEvent(QShowEvent* event)
{
    // The settings window may have changed the language or the click setting meanwhile.
    load_page();
    QDialog::showEvent(event);
}

void help::build_tree()
{
    m_index->clear();
    auto* scripting = new QTreeWidgetItem(m_index, { tr("Scripting") });
    scripting->setFlags(Qt::ItemIsEnabled);
    const QList<QPair<QTreeWidgetItem*, QString>> pages {
        { new QTreeWidgetItem(scripting, { tr("Built-in commands") }), cmd_reference },
        { new QTreeWidgetItem(scripting, { tr("Lua reference") }), lua_reference },
        { new QTreeWidgetItem(m_index, { tr("Settings") }), settings_page },
    };
    for (const auto& [item, base] : pages) {
        item->setData(0, Qt::UserRole, base);
        if (base == m_page)
            m_index->setCurrentItem(item);
    }
    m_index->expandAll();
}

void help::load_page()
{
    m_doc->setHtml(QStringLiteral("<h1 style='color: green; text-align: center;'>%1</h1>").arg(tr("Loading...")));
    const QString language = page_language();
    QString page = read_resource(m_page, language);
    page.replace(QStringLiteral("%%%"), read_resource(styles, language));
    const QMap<QString, QString> values = variables();
    for (auto it = values.cbegin(); it != values.cend(); ++it)
        page.replace(QStringLiteral("%%%1%%").arg(it.key()), it.value());
    m_doc->setHtml(page);
}

QMap<QString, QString> help::variables() const
{
    const QString chosen = m_settings.value(key("locale_override")).toString();
    const bool on = execute_commands();
    return {
        { QStringLiteral("locale_state"), chosen.isEmpty() ? tr("default") : chosen },
        { QStringLiteral("cmd_exec_act"), on ? QStringLiteral("0") : QStringLiteral("1") },
        { QStringLiteral("cmd_exec_txt"), on ? tr("disable") : tr("enable") },
        { QStringLiteral("cmd_exec_state"), on ? tr("enabled") : tr("disabled") },
    };
}

bool help::execute_commands() const
{
    return m_settings.value(key("execute_commands"), false).toBool();
}
