#include "tools/packtool/commands.h"

#include "tools/common/sealing.h"
#include "tools/packtool/entry_list.h"
#include "tools/packtool/pack_reader.h"
#include "tools/packtool/pack_writer.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QTextStream>

namespace packtool
{

namespace
{

    QTextStream& out()
    {
        static QTextStream stream(stdout);
        return stream;
    }

    QTextStream& err()
    {
        static QTextStream stream(stderr);
        return stream;
    }

    int fail(int code, const QString& message)
    {
        err() << "orvane-packtool: " << message << Qt::endl;
        return code;
    }

    bool keys_from(const QString& client_id, tools::service_identity* keys, int* code)
    {
        QString error;
        if (client_id.isEmpty()) {
            *code = fail(usage_error, QStringLiteral("--client-id is required"));
            return false;
        }
        if (!tools::service_identity::from_hex(client_id, nullptr, keys, &error)) {
            *code = fail(usage_error, error);
            return false;
        }
        return true;
    }

    // The keys it was read with go to `keys`.
    bool read_pack(const QString& client_id, const QString& path, pack_contents* contents,
        tools::service_identity* keys, int* code)
    {
        if (!keys_from(client_id, keys, code))
            return false;
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            *code = fail(input_error, QStringLiteral("can't read \"%1\": %2").arg(path, file.errorString()));
            return false;
        }
        QString error;
        if (!pack_reader(*keys).read(file.readAll(), contents, &error)) {
            *code = fail(input_error, QStringLiteral("\"%1\": %2").arg(path, error));
            return false;
        }
        return true;
    }

    QString kind_text(int kind)
    {
        return kind == 1 ? QStringLiteral("cache") : kind == 2 ? QStringLiteral("pack") : QStringLiteral("unknown");
    }

    void print_header(const QString& path, const pack_contents& c)
    {
        out() << "file " << path << "\n"
              << "version " << c.version << " kind " << kind_text(c.kind) << " blocks " << c.count << " timestamp "
              << c.timestamp << " (" << QDateTime::fromSecsSinceEpoch(c.timestamp, Qt::UTC).toString(Qt::ISODate)
              << ")\n";
    }

} // namespace

int run_build(const build_options& options)
{
    int code = success;
    tools::service_identity keys;
    if (!keys_from(options.client_id, &keys, &code))
        return code;
    if (options.version != 2 && options.version != 3)
        return fail(usage_error, QStringLiteral("--format must be 2 or 3"));
    if (options.output.isEmpty())
        return fail(usage_error, QStringLiteral("--output is required"));
    if (!options.force && QFileInfo::exists(options.output))
        return fail(usage_error, QStringLiteral("\"%1\" exists; --force replaces it").arg(options.output));

    QString error;
    entry_list entries;
    for (const QString& e : options.entries) {
        if (!entries.add_argument(e, options.cache, &error))
            return fail(usage_error, error);
    }
    for (const QString& f : options.entry_files) {
        if (!entries.add_file(f, options.cache, &error))
            return fail(input_error, error);
    }
    if (entries.size() == 0 && options.scripts.isEmpty())
        return fail(usage_error, QStringLiteral("nothing to put in the pack: give entries"));

    pack_plan plan;
    if (!entries.make_plan(options.version, options.cache, &plan, &error))
        return fail(input_error, error);
    for (const QString& s : options.scripts) {
        const int colon = s.lastIndexOf(QLatin1Char(':'));
        bool numeric = false;
        const uint value = colon > 0 ? s.mid(colon + 1).toUInt(&numeric) : 0;
        const QString name = numeric ? s.left(colon) : s;
        if (numeric && value > 255)
            return fail(usage_error, QStringLiteral("script value of \"%1\" must be 0 to 255").arg(s));
        QFile file(name);
        if (!file.open(QIODevice::ReadOnly))
            return fail(input_error, QStringLiteral("can't read \"%1\": %2").arg(name, file.errorString()));
        plan.scripts.append({ QString::fromUtf8(file.readAll()), quint8(value) });
    }
    for (const auto& f : plan.firmwares) {
        static const QStringList known { "legacy", "xcloud", "xnet" };
        if (!f.sdk_type.isEmpty() && !known.contains(f.sdk_type))
            err() << "orvane-packtool: warning: SDK type \"" << f.sdk_type
                  << "\" names no backend; the program flashes it as legacy" << Qt::endl;
    }

    const QByteArray image = pack_writer(keys).write(plan, &error);
    if (image.isEmpty())
        return fail(usage_error, error);
    QSaveFile file(options.output);
    if (!file.open(QIODevice::WriteOnly) || file.write(image) != image.size() || !file.commit())
        return fail(input_error, QStringLiteral("can't write \"%1\": %2").arg(options.output, file.errorString()));
    out() << "wrote " << options.output << ": version " << plan.version << " " << kind_text(plan.kind) << ", "
          << plan.firmwares.size() << " firmware, " << plan.targets.size() << " targets, " << plan.scripts.size()
          << " scripts, " << image.size() << " bytes" << Qt::endl;
    return success;
}

int run_list(const QString& client_id, const QString& path)
{
    pack_contents c;
    tools::service_identity keys;
    int code = success;
    if (!read_pack(client_id, path, &c, &keys, &code))
        return code;
    print_header(path, c);
    for (const auto& t : c.targets) {
        const QString ident = t.index < c.firmwares.size() ? c.firmwares[t.index].ident : QStringLiteral("-missing-");
        out() << "target " << t.serial << " index " << t.index << " ident " << ident << "\n";
    }
    for (int i = 0; i < c.firmwares.size(); ++i) {
        const auto& f = c.firmwares[i];
        out() << "firmware " << i << " block " << f.block << " ident " << f.ident << " sdk "
              << (f.sdk_type.isEmpty() ? QStringLiteral("-") : f.sdk_type) << " size " << f.plain_length << " session "
              << f.session << "\n";
    }
    for (const auto& s : c.scripts)
        out() << "script value " << s.second << " bytes " << s.first.toUtf8().size() << "\n";
    if (c.trailing > 0)
        out() << "note " << c.trailing << " bytes past the last counted block\n";
    out().flush();
    return success;
}

int run_check(const QString& client_id, const QString& path)
{
    pack_contents c;
    int code = success;
    tools::service_identity keys;
    if (!read_pack(client_id, path, &c, &keys, &code))
        return code;
    print_header(path, c);

    int faults = 0;
    for (int i = 0; i < c.firmwares.size(); ++i) {
        const auto& f = c.firmwares[i];
        out() << "firmware " << i << " " << f.ident << ": ";
        QByteArray plain;
        const bool opened = f.has_session && tools::unseal(f.payload_frame, keys.file_key(f.session), &plain);
        const QString md5 = QString::fromLatin1(QCryptographicHash::hash(plain, QCryptographicHash::Md5).toHex());
        if (!f.has_session) {
            out() << "FAILED: no session\n";
            ++faults;
        } else if (!opened) {
            out() << "FAILED: payload doesn't decrypt\n";
            ++faults;
        } else if (md5 != f.ident) {
            out() << "FAILED: MD5 of the payload is " << md5 << "\n";
            ++faults;
        } else if (quint32(plain.size()) != f.plain_length) {
            out() << "FAILED: payload is " << plain.size() << " bytes, the block says " << f.plain_length << "\n";
            ++faults;
        } else {
            out() << "ok (" << plain.size() << " bytes)\n";
        }
    }
    for (const auto& t : c.targets) {
        if (t.index >= c.firmwares.size()) {
            out() << "target " << t.serial << ": FAILED: index " << t.index << " past the last firmware\n";
            ++faults;
        }
    }
    if (c.kind == 2 && c.targets.isEmpty()) {
        out() << "FAILED: a pack without targets can't be applied\n";
        ++faults;
    }
    out() << "check " << c.firmwares.size() << " firmware, " << c.targets.size() << " targets, " << faults
          << " faults\n";
    out().flush();
    return faults ? check_failed : success;
}

} // namespace packtool
