// Commands on what the user sees: the console, the log, the window's table, menus and toolbars.
#include "app/command_context.h"
#include "app/core.h"
#include "app/fixed_names.h"
#include "scripting/sapi.h"
#include "ui/main_window.h"

#include <QCoreApplication>
#include <QListWidget>
#include <QMenu>

using scripting::command_result;

namespace {

class display_commands
{
    Q_DECLARE_TR_FUNCTIONS(core)
public:
    static void add_to(command_table& t)
    {
        using c = scripting::commands;
        t.insert(qint64(c::caps), &caps);
        t.insert(qint64(c::clear), &clear);
        t.insert(qint64(c::clear_log), &clear_log);
        t.insert(qint64(c::console_mono_font), &console_mono_font);
        t.insert(qint64(c::display_columns), &display_columns);
        t.insert(qint64(c::log), &log);
        t.insert(qint64(c::log_filters), &log_filters);
        t.insert(qint64(c::play_video), &play_video);
        t.insert(qint64(c::print), &print);
        t.insert(qint64(c::reset_columns), &reset_columns);
        t.insert(qint64(c::set_log_filters), &set_log_filters);
        t.insert(qint64(c::toggle_log_display), &toggle_log_display);
        t.insert(qint64(c::toggle_menu), &toggle_menu);
        t.insert(qint64(c::toolbar), &toolbar);
        t.insert(qint64(c::version), &version);
        t.insert(qint64(c::view_image), &view_image);
    }

private:
    static command_result caps(command_context& x)
    {
        const QVariantMap table = x.api.sapi_caps();
        for (auto it = table.cbegin(); it != table.cend(); ++it)
            x.output(QStringLiteral("<span style='color: blue;'>%1</span>: %2").arg(it.key(), it.value().toString()));
        return command_result::success();
    }

    static command_result clear(command_context& x)
    {
        if (scripting::console* out = x.c.console())
            out->clear();
        return command_result::success();
    }

    static command_result clear_log(command_context& x)
    {
        if (main_window* w = x.c.window())
            w->log_list()->clear();
        return command_result::success();
    }

    static command_result console_mono_font(command_context& x)
    {
        const bool mono = sapi::to_bool(x.arg(0));
        if (scripting::console* out = x.c.console())
            out->set_mono_font(mono);
        return command_result::success();
    }

    static command_result display_columns(command_context& x)
    {
        if (main_window* w = x.c.window())
            w->set_column_layout(x.call.args);
        return command_result::success();
    }

    static command_result log(command_context& x)
    {
        const QStringList tags { fixed_names::tags::ovscript, fixed_names::tags::scripting };
        x.c.log(fixed_names::sources::ovscript, x.arg(0), tags);
        // Without a window the console is the log, which has the line already.
        scripting::console* out = x.c.console();
        if (out && x.c.mode() == core::interactive && x.plain())
            out->append(QStringLiteral("<div style='font-style: italic; color: green;'>%1</div>").arg(x.arg(0)), false);
        return command_result::success();
    }

    static command_result log_filters(command_context& x)
    {
        x.output(x.c.options().log_filter.join(QStringLiteral(", ")));
        return command_result::success();
    }

    static command_result play_video(command_context& x)
    {
        if (!x.api.available(sapi::feature::video))
            return x.error(sapi::unavailable_text(sapi::feature::video));
        x.api.sapi_play_video(QUrl::fromUserInput(x.arg(0)), x.call.params);
        return { true, x.arg(0) };
    }

    static command_result print(command_context& x)
    {
        const QString text = x.call.args.join(QLatin1Char(' '));
        x.output(text);
        return { true, text };
    }

    static command_result reset_columns(command_context& x)
    {
        if (main_window* w = x.c.window())
            w->reset_column_layout();
        return command_result::success();
    }

    static command_result set_log_filters(command_context& x)
    {
        x.c.set_log_filters(x.call.args);
        return command_result::success();
    }

    static command_result toggle_log_display(command_context& x)
    {
        const bool visible = sapi::to_bool(x.arg(0));
        if (main_window* w = x.c.window())
            w->set_log_visible(visible);
        return command_result::success();
    }

    static command_result toggle_menu(command_context& x)
    {
        const QString menu = x.arg(0).toLower();
        if (menu != QLatin1String("actions") && menu != QLatin1String("options"))
            return x.error(tr("Unknown menu: %1").arg(x.arg(0)));
        const bool visible = sapi::to_bool(x.arg(1));
        if (main_window* w = x.c.window()) {
            QMenu* shown = menu == QLatin1String("actions") ? w->menu_actions() : w->menu_options();
            shown->menuAction()->setVisible(visible);
        }
        return command_result::success();
    }

    static command_result toolbar(command_context& x)
    {
        const bool done = x.api.sapi_toolbar(x.arg(0), x.arg(1), x.call.args.mid(2), x.call.params);
        return done ? command_result::success() : command_result::failure();
    }

    static command_result version(command_context& x)
    {
        const QString text = x.api.sapi_version();
        x.output(text);
        return { true, text };
    }

    static command_result view_image(command_context& x)
    {
        x.api.sapi_view_image(QUrl::fromUserInput(x.arg(0)));
        return command_result::success();
    }
};

} // namespace

void add_display_commands(command_table& table)
{
    display_commands::add_to(table);
}
