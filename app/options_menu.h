#pragma once

#include "app/menu_prototype.h"

struct menu_options;

namespace dynmenu
{

// Check boxes that shape the device operations, shown from Extended/menu_options. Each
// entry's first argument is the option ident the core knows; the rest is its value.
class options_menu final : public menu_prototype
{
    Q_OBJECT
public:
    using menu_prototype::menu_prototype;
    Q_DISABLE_COPY_MOVE(options_menu)

    void build() override;
    void retranslate() override;
    // Shows the stored options (their defaults where nothing is stored).
    void load(QSettings& settings) override;
    // Stores the options as the menu shows them.
    void save(QSettings& settings) const override;
    // Shows a record as it stands.
    void show_options(const menu_options& options);

private:
    QAction* add_option(int ident, const QString& option, const QVariantList& value = {}, int parent = -1);
    QAction* add_section(int ident);
    bool checked(int ident) const;
    QStringList m_filter_tags; // the tags of the log filter items, from ident first_filter on
};

} // namespace dynmenu
