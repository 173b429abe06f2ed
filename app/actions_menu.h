#pragma once

#include "app/menu_prototype.h"

namespace dynmenu
{

// The device operations, each a command on the selected rows.
class actions_menu final : public menu_prototype
{
    Q_OBJECT
public:
    using menu_prototype::menu_prototype;
    Q_DISABLE_COPY_MOVE(actions_menu)

    void build() override;
    void retranslate() override;
};

} // namespace dynmenu
