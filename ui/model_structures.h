#pragma once

#include <QList>
#include <QMetaType>
#include <QString>

#include <cstdint>

// Types shared by the device table, the pack dialog and core's selection handling.
namespace model_structures
{

// How a selection request changes the check marks of all rows.
enum class selection_type : int { all = 0, inverted = 1, none = 2 };

// One target of a firmware pack, as the apply dialog edits it.
struct pack_target {
    QString serial; // target text of the pack
    uint8_t index = 0; // block index inside the pack
    QString sdk_type; // functionality for this target; may be empty
    bool present = false; // a task with this serial is in the list
    bool checked = true;

    bool operator==(const pack_target& other) const;
};

using device_list = QList<pack_target>;

// Registers the types above for queued connections; safe to call more than once.
void register_meta_types();

} // namespace model_structures

Q_DECLARE_METATYPE(model_structures::selection_type)
Q_DECLARE_METATYPE(model_structures::pack_target)
Q_DECLARE_METATYPE(model_structures::device_list)
