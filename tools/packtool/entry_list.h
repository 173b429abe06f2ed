#pragma once

#include "tools/packtool/pack_plan.h"

#include <QString>
#include <QVector>

namespace packtool
{

// The (serial, firmware file, SDK type) entries a pack is built from.
class entry_list
{
public:
    struct entry {
        QString serial; // empty for a cache entry
        QString file;
        QString sdk_type;
    };

    // "SERIAL:FILE" or "SERIAL:FILE:SDK"; for a cache, a file name alone.
    bool add_argument(const QString& text, bool cache, QString* error);
    // Lines "SERIAL<TAB>FILE[<TAB>SDK]" (or a file alone for a cache); '#' starts a comment.
    bool add_file(const QString& path, bool cache, QString* error);

    // Reads the files and merges equal ones into one firmware block; two serials may share one.
    bool make_plan(int version, bool cache, pack_plan* plan, QString* error) const;
    int size() const { return m_entries.size(); }

private:
    bool add(const QStringList& fields, bool cache, const QString& where, QString* error);

    QVector<entry> m_entries;
};

} // namespace packtool
