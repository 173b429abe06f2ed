// Commands that reach the network or make themselves heard, and the pause.
#include "app/command_context.h"
#include "app/core.h"
#include "scripting/sapi.h"

#include <QCoreApplication>
#include <QUrl>

using scripting::command_result;

namespace {

class network_commands
{
    Q_DECLARE_TR_FUNCTIONS(core)
public:
    static void add_to(command_table& t)
    {
        using c = scripting::commands;
        t.insert(qint64(c::disable_client), &disable_client);
        t.insert(qint64(c::download_file), &download_file);
        t.insert(qint64(c::enable_client), &enable_client);
        t.insert(qint64(c::network_get), &network_get);
        t.insert(qint64(c::network_post), &network_post);
        t.insert(qint64(c::notify_beep), &notify_beep);
        t.insert(qint64(c::notify_sound), &notify_sound);
        t.insert(qint64(c::sleep), &sleep);
        t.insert(qint64(c::url_contents), &url_contents);
    }

private:
    static QUrl url_of(const QString& text) { return QUrl::fromUserInput(text); }

    static command_result disable_client(command_context& x)
    {
        x.c.switch_remote(false);
        return command_result::success();
    }

    static command_result enable_client(command_context& x)
    {
        x.c.switch_remote(true);
        return command_result::success();
    }

    static command_result download_file(command_context& x)
    {
        if (!x.api.sapi_download_file(url_of(x.arg(0)), x.arg(1)))
            return x.error(tr("Unable to download from %1").arg(x.arg(0)));
        x.output(tr("File %1 successfully downloaded as %2").arg(x.arg(0), x.arg(1)));
        return { true, x.arg(1) };
    }

    static command_result print_members(command_context& x, const param_list& members)
    {
        for (auto it = members.cbegin(); it != members.cend(); ++it)
            x.output(QStringLiteral("%1 = %2").arg(it.key().toHtmlEscaped(), it.value().toHtmlEscaped()));
        return command_result::success();
    }

    static command_result network_get(command_context& x)
    {
        return print_members(x, x.api.sapi_rest_get(url_of(x.arg(0))));
    }

    static command_result network_post(command_context& x)
    {
        return print_members(x, x.api.sapi_rest_post(url_of(x.arg(0)), x.arg(1).toUtf8()));
    }

    static command_result notify_beep(command_context& x)
    {
        const QStringList& a = x.call.args;
        if (a.size() % 2 != 0)
            return x.error(tr("Sound queue should be set in pairs."));
        QList<sapi::tone> tones;
        for (int i = 0; i < a.size(); i += 2)
            tones.append({ float(sapi::to_hertz(a[i])), float(sapi::to_seconds(a[i + 1])) });
        if (!x.api.play_tones(tones))
            return x.error(QCoreApplication::translate("sapi", "No audio output to play the sound"));
        return command_result::success();
    }

    static command_result notify_sound(command_context& x)
    {
        if (!x.api.play_sound(x.arg(0), x.has_param(QStringLiteral("background"))))
            return x.error(QCoreApplication::translate("sapi", "Unable to play the sound file %1").arg(x.arg(0)));
        return { true, x.arg(0) };
    }

    static command_result sleep(command_context& x)
    {
        const double seconds = sapi::to_seconds(x.arg(0));
        x.api.sapi_sleep(float(seconds));
        return { true, QString::number(seconds, 'g', 6) };
    }

    static command_result url_contents(command_context& x)
    {
        const QString text = x.api.sapi_url_contents(url_of(x.arg(0)));
        QStringList escaped;
        for (const QString& line : text.split(QLatin1Char('\n'), Qt::SkipEmptyParts))
            escaped << line.toHtmlEscaped();
        x.output(escaped.join(QStringLiteral("<br>\n")));
        return command_result::success();
    }
};

} // namespace

void add_network_commands(command_table& table)
{
    network_commands::add_to(table);
}
