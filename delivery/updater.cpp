#include "delivery/updater.h"

#include "delivery/service_url.h"
#include "diagnostics/log_categories.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QProcess>
#include <QSaveFile>

#include <cstdio>

namespace {

void tell(const QString& text)
{
    const QByteArray line = text.toLocal8Bit() + '\n';
    fwrite(line.constData(), 1, size_t(line.size()), stderr);
}

} // namespace

updater::updater(int platform, int build, const QString& folder, QObject* parent)
    : QObject(parent)
    , m_platform(platform)
    , m_build(build)
    , m_folder(folder)
{
    m_timer.setInterval(check_interval_ms);
    connect(&m_timer, &QTimer::timeout, this, &updater::timeout);
    connect(&m_network, &QNetworkAccessManager::finished, this, &updater::finished);
}

updater::~updater() = default;

void updater::start()
{
    check();
    m_timer.start();
}

void updater::stop()
{
    m_timer.stop();
}

void updater::check()
{
    m_network.get(QNetworkRequest(check_url()));
}

void updater::download(bool postponed)
{
    m_postponed = postponed;
    m_network.get(QNetworkRequest(file_url()));
}

void updater::set_server(const QHostAddress& address, uint16_t port)
{
    m_base_url = delivery::service_url(address, port, path);
}

QUrl updater::check_url() const
{
    return QUrl(m_base_url + QStringLiteral("check/%1/%2/").arg(platform_word(m_platform)).arg(m_build));
}

QUrl updater::file_url() const
{
    return QUrl(m_base_url + QStringLiteral("file/%1/%2/").arg(platform_word(m_platform)).arg(m_offered_build));
}

QString updater::platform_word(int platform)
{
    switch (platform) {
    case 1: return QStringLiteral("l");
    case 2: return QStringLiteral("w64");
    case 3: return QStringLiteral("w32");
    default: return {};
    }
}

QString updater::updater_program(int platform)
{
    switch (platform) {
    case 1: return QStringLiteral("./updater");
    case 2:
    case 3: return QStringLiteral("updater.exe");
    default: return {};
    }
}

void updater::timeout()
{
    check();
}

void updater::finished(QNetworkReply* reply)
{
    const QByteArray body = reply->readAll();
    const bool is_check = reply->request().url() == check_url();
    const bool transport_ok = reply->error() == QNetworkReply::NoError;
    reply->deleteLater();
    if (is_check)
        check_answer(body);
    else
        file_answer(body, transport_ok);
}

void updater::check_answer(const QByteArray& body)
{
    // A failed check is silent: the next one tries again.
    if (body.isEmpty() || body == "{}")
        return;
    const QJsonDocument doc = QJsonDocument::fromJson(body);
    if (!doc.isObject()) {
        qCDebug(lc_delivery, "Not an object");
        return;
    }
    const QJsonObject answer = doc.object();
    for (const char* member : { "latest", "time", "changelog" }) {
        if (!answer.contains(QLatin1String(member)))
            return;
    }
    // Each build is announced once, and this one never.
    const int32_t latest = answer.value(QLatin1String("latest")).toInt();
    if (latest == m_offered_build || latest == m_build)
        return;
    m_offered_build = latest;

    update_info info;
    info.build = latest;
    info.time = QDateTime::fromString(answer.value(QLatin1String("time")).toString(), time_format);
    const QJsonObject changelog = answer.value(QLatin1String("changelog")).toObject();
    for (auto it = changelog.begin(); it != changelog.end(); ++it) {
        const QJsonObject entry = it.value().toObject();
        info.changes << change { entry.value(QLatin1String("message")).toString(),
            entry.value(QLatin1String("important")).toBool(), entry.value(QLatin1String("since_rev")).toInt() };
    }
    emit new_update_available(info);
}

void updater::file_answer(const QByteArray& body, bool transport_ok)
{
    // An error page can be long; only a whole answer of a plausible size is a build.
    if (!transport_ok || body.size() < min_file_size) {
        emit download_failed(tr("Получен неправильный файл обновления."));
        return;
    }
    // Written beside and renamed, so the updater program never finds half a build.
    QSaveFile file(QDir(m_folder).filePath(update_file));
    if (!file.open(QIODevice::WriteOnly) || file.write(body) != body.size() || !file.commit()) {
        emit download_failed(tr("Невозможно сохранить файл обновления."));
        return;
    }
    emit downloaded();
}

QString updater::changes_html(const update_info& info)
{
    if (info.changes.isEmpty())
        return tr("Изменения не указаны");
    QMap<int32_t, QList<change>> groups;
    for (const change& c : info.changes)
        groups[c.since_rev] << c;

    QString text = QStringLiteral("<h3>%1</h3>").arg(tr("Изменения:"));
    int written = 0;
    for (auto group = groups.cbegin(); group != groups.cend() && written < shown_changes; ++group) {
        text += QStringLiteral("<div style='margin-top: 2px;'>%1</div><ul>").arg(tr("Начиная со сборки %1:").arg(group.key()));
        int in_group = 0;
        for (; in_group < group->size() && written < shown_changes; ++in_group, ++written) {
            const change& c = group->at(in_group);
            text += QStringLiteral("<li><span style='%1'>%2</span>")
                        .arg(c.important ? QStringLiteral("text-decoration: underline;") : QString(), c.message);
        }
        // A group cut short is closed by the tail below.
        if (in_group == group->size())
            text += QStringLiteral("</ul>");
    }
    if (info.changes.size() > shown_changes)
        text += QStringLiteral("</ul><div>...</div><div>%1</div>")
                    .arg(tr("+ ещё %1 изменений.").arg(info.changes.size() - shown_changes));
    return text;
}

bool launch_updater(int platform, const QString& folder)
{
    const QString program = updater::updater_program(platform);
    if (program.isEmpty())
        return false;
    return QProcess::startDetached(QDir(folder).filePath(QFileInfo(program).fileName()), {}, folder);
}

bool install_pending(int platform, const QString& folder)
{
    const QDir dir(folder);
    if (!QFile::exists(dir.filePath(updater::update_file)))
        return false;
    const QString lock = dir.filePath(updater::lock_file);
    if (QFile::exists(lock)) {
        tell(updater::tr("An update of the program is being installed (%1 exists): start it again once that has "
                         "finished.")
                 .arg(QDir::toNativeSeparators(lock)));
    } else {
        QFile mark(lock);
        mark.open(QIODevice::WriteOnly | QIODevice::Truncate);
        mark.close();
        if (!launch_updater(platform, folder)) {
            // Without this the lock would keep every later start from running.
            QFile::remove(lock);
            tell(updater::tr("Unable to start the updater program: the new build waits in %1.")
                     .arg(QDir::toNativeSeparators(dir.filePath(updater::update_file))));
            return false;
        }
        tell(updater::tr("A new build of the program is being installed: start it again in a moment."));
    }
    QMetaObject::invokeMethod(QCoreApplication::instance(), "quit", Qt::QueuedConnection);
    return true;
}
