// A Qt plugin, but not one of the program's.
#include <QObject>
#include <QtPlugin>

class foreign_plugin final : public QObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "org.example.other.interface")
};

#include "foreign_plugin.moc"
