#include "ui/model_structures.h"

namespace model_structures
{

bool pack_target::operator==(const pack_target& other) const
{
    return serial == other.serial && index == other.index && sdk_type == other.sdk_type && present == other.present
        && checked == other.checked;
}

void register_meta_types()
{
    qRegisterMetaType<selection_type>("model_structures::selection_type");
    qRegisterMetaType<pack_target>("model_structures::pack_target");
    qRegisterMetaType<device_list>("model_structures::device_list");
}

} // namespace model_structures
