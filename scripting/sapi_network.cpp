// The API's network operations: blocking calls over QNetworkAccessManager.
#include "scripting/sapi.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QStandardPaths>

namespace {

// The members of a JSON object as text; nothing when the body isn't one.
param_list json_members(const QByteArray& body)
{
    param_list members;
    const QJsonObject object = QJsonDocument::fromJson(body).object();
    for (auto it = object.constBegin(); it != object.constEnd(); ++it) {
        const QJsonValue& value = it.value();
        if (value.isObject())
            members.insert(it.key(), QString::fromUtf8(QJsonDocument(value.toObject()).toJson(QJsonDocument::Compact)));
        else if (value.isArray())
            members.insert(it.key(), QString::fromUtf8(QJsonDocument(value.toArray()).toJson(QJsonDocument::Compact)));
        else
            members.insert(it.key(), value.toVariant().toString());
    }
    return members;
}

QNetworkRequest request_for(const QUrl& url)
{
    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    return request;
}

} // namespace

QByteArray sapi::finish(QNetworkReply* reply)
{
    // Made and waited for in the caller's thread: the Lua thread calls these too.
    sapi_wait([reply] { return !reply->isFinished(); });
    const QByteArray data = reply->readAll();
    reply->deleteLater();
    return data;
}

QByteArray sapi::sapi_url_data(const QUrl& url)
{
    QNetworkAccessManager network;
    return finish(network.get(request_for(url)));
}

QString sapi::sapi_url_contents(const QUrl& url)
{
    const QByteArray data = sapi_url_data(url);
    const int nul = data.indexOf('\0');
    return QString::fromLatin1(nul < 0 ? data : data.left(nul));
}

param_list sapi::sapi_rest_get(const QUrl& url)
{
    const QByteArray body = sapi_url_data(url);
    param_list members = json_members(body);
    if (members.isEmpty() && !body.isEmpty())
        members.insert(QStringLiteral("-raw-"), QString::fromUtf8(body));
    return members;
}

param_list sapi::sapi_rest_post(const QUrl& url, const QByteArray& body)
{
    QNetworkAccessManager network;
    QNetworkRequest request = request_for(url);
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/x-www-form-urlencoded"));
    return json_members(finish(network.post(request, body)));
}

bool sapi::sapi_download_file(const QUrl& url, const QString& file)
{
    const QByteArray data = sapi_url_data(url);
    QString path = file;
    // A bare name goes where the program keeps its data; a run without windows takes it as given.
    if (!file.contains(QDir::separator()) && !(m_functions.batch && m_functions.batch())) {
        const QString folder = QStandardPaths::writableLocation(QStandardPaths::DataLocation);
        QDir().mkpath(folder);
        path = QDir(folder).filePath(file);
    }
    QFile out(path);
    if (!out.open(QIODevice::WriteOnly | QIODevice::Text))
        return false;
    out.write(data);
    return true;
}
