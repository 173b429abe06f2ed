#include "ui/dynwidgets_controller.h"

#include <QLabel>
#include <QLineEdit>
#include <QMainWindow>
#include <QSignalBlocker>
#include <QSpinBox>
#include <QToolBar>
#include <QToolButton>

namespace dynwidgets
{

namespace
{

const QString type_key = QStringLiteral("type");
const QString label_key = QStringLiteral("label");
const QString value_key = QStringLiteral("value");
const QString min_key = QStringLiteral("min");
const QString max_key = QStringLiteral("max");
const QString action_key = QStringLiteral("action");

// Ports and address parts fit; a script that wants more says so.
constexpr int default_min = 0;
constexpr int default_max = 65535;

std::optional<controller::kind> kind_of(const QString& type)
{
    static const QMap<QString, controller::kind> kinds { { QStringLiteral("label"), controller::label },
        { QStringLiteral("button"), controller::button }, { QStringLiteral("numeric"), controller::numeric },
        { QStringLiteral("separator"), controller::separator }, { QStringLiteral("text"), controller::text } };
    const auto it = kinds.constFind(type.toLower());
    if (it == kinds.constEnd())
        return std::nullopt;
    return *it;
}

int number(const QMap<QString, QString>& params, const QString& key, int fallback)
{
    bool ok = false;
    const int n = params.value(key).toInt(&ok);
    return ok ? n : fallback;
}

} // namespace

controller::controller(QMainWindow* host, QObject* parent)
    : QObject(parent)
    , m_host(host)
{
}

controller::~controller() = default;

QString controller::add(const QString& toolbar_name, const QStringList& args, const QMap<QString, QString>& params)
{
    if (!params.contains(type_key))
        return tr("Missing widget type");
    const std::optional<kind> type = kind_of(params.value(type_key));
    if (!type)
        return tr("Unknown widget type: %1").arg(params.value(type_key));
    QString ident = args.value(0);
    if (ident.isEmpty()) {
        do
            ident = QStringLiteral("widget%1").arg(++m_made_up);
        while (find(toolbar_name, ident));
    } else if (find(toolbar_name, ident)) {
        return tr("Widget %1 already exists").arg(ident);
    }
    QToolBar* bar = toolbar(toolbar_name);
    if (!bar)
        return tr("No window to hold the widget");

    widget w;
    w.ident = ident;
    w.toolbar = bar;
    w.type = *type;
    if (*type == numeric || *type == text) {
        w.caption = new QLabel(bar);
        w.actions << bar->addWidget(w.caption);
    }
    switch (*type) {
    case label:
        w.widget = new QLabel(bar);
        break;
    case button: {
        auto* b = new QToolButton(bar);
        // The action is read at the click: an edit may have changed it.
        connect(b, &QToolButton::clicked, this, [this, toolbar_name, ident] {
            if (const widget* pressed = find(toolbar_name, ident))
                emit button_clicked(pressed->properties.value(action_key));
        });
        w.widget = b;
        break;
    }
    case numeric: {
        auto* spin = new QSpinBox(bar);
        spin->setRange(default_min, default_max);
        connect(spin, qOverload<int>(&QSpinBox::valueChanged), this,
            [this, toolbar_name, ident](int v) { changed(toolbar_name, ident, QString::number(v)); });
        w.widget = spin;
        break;
    }
    case text: {
        auto* edit = new QLineEdit(bar);
        connect(edit, &QLineEdit::textEdited, this,
            [this, toolbar_name, ident](const QString& v) { changed(toolbar_name, ident, v); });
        w.widget = edit;
        break;
    }
    case separator:
        break;
    }
    w.actions << (w.widget ? bar->addWidget(w.widget) : bar->addSeparator());
    w.properties.insert(type_key, params.value(type_key).toLower());
    apply(w, params);
    m_groups[toolbar_name].append(w);
    return {};
}

QString controller::edit(const QString& toolbar_name, const QString& ident, const QMap<QString, QString>& params)
{
    widget* w = find(toolbar_name, ident);
    if (!w)
        return tr("Widget not found: %1").arg(ident);
    // The kind stays what it was made as.
    QMap<QString, QString> changes = params;
    changes.remove(type_key);
    apply(*w, changes);
    return {};
}

QString controller::remove(const QString& toolbar_name, const QString& ident)
{
    QList<widget>& group = m_groups[toolbar_name];
    for (int i = 0; i < group.size(); ++i) {
        if (group[i].ident != ident)
            continue;
        // A toolbar's widget action deletes its widget with it.
        qDeleteAll(group[i].actions);
        group.removeAt(i);
        return {};
    }
    return tr("Widget not found: %1").arg(ident);
}

std::optional<QString> controller::value(const QString& toolbar_name, const QString& ident, const QString& key) const
{
    for (auto g = m_groups.constBegin(); g != m_groups.constEnd(); ++g) {
        if (!toolbar_name.isEmpty() && g.key() != toolbar_name)
            continue;
        for (const widget& w : *g) {
            if (w.ident == ident && w.properties.contains(key))
                return w.properties.value(key);
        }
    }
    return std::nullopt;
}

void controller::set_visible(const QString& toolbar_name, bool visible)
{
    if (QToolBar* bar = toolbar(toolbar_name))
        bar->setVisible(visible);
}

void controller::on_event(const QString&, const QStringList&, const QString&, const QString&) {}

QToolBar* controller::existing_toolbar(const QString& name) const
{
    return m_toolbars.value(name);
}

QToolBar* controller::toolbar(const QString& name)
{
    if (QToolBar* bar = m_toolbars.value(name))
        return bar;
    if (!m_host)
        return nullptr;
    auto* bar = new QToolBar(name, m_host);
    bar->setObjectName(name);
    m_host->addToolBar(bar);
    m_toolbars.insert(name, bar);
    return bar;
}

controller::widget* controller::find(const QString& toolbar_name, const QString& ident)
{
    const auto g = m_groups.find(toolbar_name);
    if (g == m_groups.end())
        return nullptr;
    for (widget& w : *g) {
        if (w.ident == ident)
            return &w;
    }
    return nullptr;
}

void controller::apply(widget& w, const QMap<QString, QString>& params)
{
    for (auto p = params.constBegin(); p != params.constEnd(); ++p)
        w.properties.insert(p.key(), p.value());
    const QString caption = w.properties.value(label_key);
    // Setting a value from a script is no change by the user: nothing is raised.
    const QSignalBlocker quiet(w.widget);
    switch (w.type) {
    case label:
        static_cast<QLabel*>(w.widget)->setText(caption);
        break;
    case button:
        static_cast<QToolButton*>(w.widget)->setText(caption);
        break;
    case numeric: {
        w.caption->setText(caption);
        auto* spin = static_cast<QSpinBox*>(w.widget);
        spin->setRange(number(w.properties, min_key, default_min), number(w.properties, max_key, default_max));
        spin->setValue(number(w.properties, value_key, spin->value()));
        // Kept as shown: a value out of range was clamped.
        w.properties.insert(value_key, QString::number(spin->value()));
        break;
    }
    case text:
        w.caption->setText(caption);
        static_cast<QLineEdit*>(w.widget)->setText(w.properties.value(value_key));
        break;
    case separator:
        break;
    }
}

void controller::changed(const QString& toolbar_name, const QString& ident, const QString& value)
{
    widget* w = find(toolbar_name, ident);
    if (!w)
        return;
    w->properties.insert(value_key, value);
    raise_event(QStringLiteral("widget_changed"), { ident, value });
}

} // namespace dynwidgets
