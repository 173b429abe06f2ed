#pragma once

#include "plugins/cmd_id.h"
#include "plugins/plugin_interface.h"

#include <QCoreApplication>
#include <QList>
#include <QMap>
#include <QObject>
#include <QString>

#include <map>
#include <memory>

class QPluginLoader;

namespace plugins {

// Where a plugin file stands. Unknown files are unloaded; a file ends its load in failed,
// incompatible, duplicate or loaded, and a loaded plugin becomes ready once it started.
enum class plugin_state { unloaded = 0, found, failed, incompatible, duplicate, loaded, ready };

struct plugin_record
{
    plugin_interface* interface = nullptr; // owned by the library; null unless loaded or ready
    QString ident; // empty when the file didn't load
    QString file; // absolute path
    plugin_state state = plugin_state::unloaded;
};

// Finds, checks and holds the plugins. Every file tried keeps a record, so that the
// listing shows why one didn't load. Main thread only.
class loader final : public QObject
{
    Q_OBJECT
public:
    explicit loader(QObject* parent = nullptr);
    ~loader() override;
    Q_DISABLE_COPY_MOVE(loader)

    // The plugin's identifier; empty when the file isn't a usable plugin.
    QString load_file(const QString& path);
    // Loads every file of a folder in name order; the number loaded.
    int load_directory(const QString& path);
    // In file order; without the failed ones when only_loadable.
    QList<plugin_record> records(bool only_loadable) const;
    plugin_state state(const QString& ident) const;
    // Null when no plugin has the identifier.
    plugin_interface* instance(const QString& ident) const;
    plugin_interface* instance(const scripting::cmd_id& id) const { return instance(id.plugin); }
    void mark_ready(const QString& ident);
    // Unloads the library and forgets the plugin; false when it isn't known.
    bool unload(const QString& ident);

    // "ready ✓", "failed", ... in the current language.
    static QString state_word(plugin_state state);

signals:
    void message(const QString& text);

private:
    // Keeps the record of a file that didn't load and lets its library go, when given; empty.
    QString refuse(const plugin_record& record, const QString& text, QPluginLoader* library);

    QMap<QString, QString> m_by_ident; // identifier -> file
    QMap<QString, plugin_record> m_by_file; // absolute path -> record
    std::map<QString, std::unique_ptr<QPluginLoader>> m_libraries; // by file, while loaded
};

} // namespace plugins
