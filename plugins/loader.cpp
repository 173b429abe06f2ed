#include "plugins/loader.h"

#include "diagnostics/log_categories.h"

#include <QDir>
#include <QFileInfo>
#include <QPluginLoader>

namespace plugins {

loader::loader(QObject* parent)
    : QObject(parent)
{
}

loader::~loader()
{
    // The program that gave the plugins its services is going; so do they.
    for (auto& [file, library] : m_libraries)
        library->unload();
}

QString loader::load_file(const QString& path)
{
    const QString file = QFileInfo(path).absoluteFilePath();
    const plugin_record known = m_by_file.value(file);
    if (known.state == plugin_state::loaded || known.state == plugin_state::ready) {
        emit message(tr("Duplicate plugin identificator: %1").arg(known.ident));
        return {};
    }

    auto library = std::make_unique<QPluginLoader>(file);
    QObject* root = library->instance();
    if (!root) {
        qCDebug(lc_plugins, "%s: %s", qPrintable(file), qPrintable(library->errorString()));
        return refuse(
            { nullptr, {}, file, plugin_state::failed }, tr("Failed to load plugin: %1").arg(file), library.get());
    }
    auto* plugin = qobject_cast<plugin_interface*>(root);
    if (!plugin)
        return refuse({ nullptr, {}, file, plugin_state::failed }, tr("Failed to interface the plugin %1").arg(file),
            library.get());
    // Only the version is asked of an older plugin: the rest of its table may lie elsewhere.
    const int version = plugin->version();
    if (version < interface_version)
        return refuse({ nullptr, {}, file, plugin_state::incompatible },
            tr("Incompatible plugin version, system version %1, plugin version %2").arg(interface_version).arg(version),
            library.get());
    // A copy: a literal's data lies in the library, which may go before the copy does.
    const QString given = plugin->ident();
    const QString ident(given.constData(), given.size());
    // An identifier that a command's text form can't carry would pass its commands off as built-in ones.
    if (ident.isEmpty() || ident.contains(QLatin1Char('/')))
        return refuse({ nullptr, {}, file, plugin_state::failed }, tr("Failed to interface the plugin %1").arg(file),
            library.get());
    if (m_by_ident.contains(ident)) {
        // A second path to a library already loaded gives the very same object, which stays.
        const bool same_object = m_by_file.value(m_by_ident.value(ident)).interface == plugin;
        return refuse({ nullptr, ident, file, plugin_state::duplicate },
            tr("Duplicate plugin identificator: %1").arg(ident), same_object ? nullptr : library.get());
    }

    m_by_file.insert(file, { plugin, ident, file, plugin_state::loaded });
    m_by_ident.insert(ident, file);
    m_libraries[file] = std::move(library);
    return ident;
}

QString loader::refuse(const plugin_record& record, const QString& text, QPluginLoader* library)
{
    m_by_file.insert(record.file, record);
    if (library)
        library->unload();
    emit message(text);
    return {};
}

int loader::load_directory(const QString& path)
{
    const QDir folder(path);
    int count = 0;
    for (const QString& name : folder.entryList(QDir::Files)) {
        const QString ident = load_file(folder.absoluteFilePath(name));
        if (ident.isEmpty())
            continue;
        ++count;
        emit message(tr("Plugin \"%1\" loaded").arg(ident));
    }
    return count;
}

QList<plugin_record> loader::records(bool only_loadable) const
{
    QList<plugin_record> list;
    for (const plugin_record& r : m_by_file) {
        if (!only_loadable || r.state == plugin_state::loaded || r.state == plugin_state::ready)
            list << r;
    }
    return list;
}

plugin_state loader::state(const QString& ident) const
{
    const auto file = m_by_ident.find(ident);
    return file == m_by_ident.end() ? plugin_state::unloaded : m_by_file.value(*file).state;
}

plugin_interface* loader::instance(const QString& ident) const
{
    const auto file = m_by_ident.find(ident);
    return file == m_by_ident.end() ? nullptr : m_by_file.value(*file).interface;
}

void loader::mark_ready(const QString& ident)
{
    const auto file = m_by_ident.find(ident);
    if (file != m_by_ident.end())
        m_by_file[*file].state = plugin_state::ready;
}

bool loader::unload(const QString& ident)
{
    const QString file = m_by_ident.take(ident);
    if (file.isEmpty())
        return false;
    m_by_file.remove(file);
    const auto library = m_libraries.find(file);
    const bool unloaded = library->second->unload();
    m_libraries.erase(library);
    return unloaded;
}

QString loader::state_word(plugin_state state)
{
    switch (state) {
    case plugin_state::unloaded:
        return tr("unloaded");
    case plugin_state::found:
        return tr("found");
    case plugin_state::failed:
        return tr("failed");
    case plugin_state::incompatible:
        return tr("incompatible");
    case plugin_state::duplicate:
        return tr("duplicate");
    case plugin_state::loaded:
        return tr("loaded");
    case plugin_state::ready:
        // The mark is no part of the word.
        return tr("ready") + QStringLiteral(" \u2713");
    }
    return {};
}

} // namespace plugins
