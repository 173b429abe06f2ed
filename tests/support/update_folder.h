#pragma once

// A portable installation in a folder of its own for the self-update tests: the old test build as "orvane" and
// the updater program beside it. Header-only; the test target defines where the binaries are: ORVANE_UPDATER,
// TEST_BUILD_OLD and TEST_BUILD_NEW.
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

struct update_folder
{
    static QByteArray read(const QString& path)
    {
        QFile f(path);
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    }
    static QByteArray old_build() { return read(QStringLiteral(TEST_BUILD_OLD)); }
    static QByteArray new_build() { return read(QStringLiteral(TEST_BUILD_NEW)); }

    QString path(const QString& name) const { return dir.filePath(name); }
    QByteArray content(const QString& name) const { return read(path(name)); }
    bool exists(const QString& name) const { return QFile::exists(path(name)); }

    bool put(const QString& name, const QByteArray& data, bool executable = false)
    {
        QFile f(path(name));
        if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate) || f.write(data) != data.size())
            return false;
        f.close();
        return !executable || f.setPermissions(f.permissions() | QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther);
    }

    // The program (old build) and the updater; the new build waiting and the lock when asked.
    bool set_up(bool candidate = true, bool lock = true)
    {
        return dir.isValid() && put(QStringLiteral("orvane"), old_build(), true)
            && put(QStringLiteral("updater"), read(QStringLiteral(ORVANE_UPDATER)), true)
            && (!candidate || put(QStringLiteral("tmp-newer-version.bin"), new_build()))
            && (!lock || put(QStringLiteral("client_updating.lock"), {}));
    }

    // What the installed program prints when started: "test build <number> 1", empty when it doesn't run.
    QString run_program()
    {
        QProcess p;
        p.start(path(QStringLiteral("orvane")), {});
        if (!p.waitForFinished(5000) || p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0)
            return {};
        return QString::fromLatin1(p.readAllStandardOutput()).trimmed();
    }

    // Runs the updater to its end as the program would start it, with extra environment; its exit code, or -1
    // when it was killed.
    int run_updater(const QStringList& environment = {})
    {
        QProcess p;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        for (const QString& pair : environment)
            env.insert(pair.section('=', 0, 0), pair.section('=', 1));
        p.setProcessEnvironment(env);
        p.setWorkingDirectory(dir.path());
        p.start(path(QStringLiteral("updater")), {});
        if (!p.waitForFinished(20000))
            p.kill();
        return p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    }

    QTemporaryDir dir;
};
