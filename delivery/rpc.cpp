#include "delivery/rpc.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QThread>

namespace delivery {

rpc::rpc(const QUrl& endpoint)
    : m_endpoint(endpoint)
{
    QLoggingCategory::setFilterRules(QStringLiteral("qt.network.ssl.warning=false"));
}

rpc::~rpc() = default;

rpc::response rpc::call(const QString& method, const QVariantList& params)
{
    ++m_counter;
    QJsonArray args;
    for (const QVariant& p : params)
        args.append(QJsonValue::fromVariant(p));
    const QJsonObject request {
        { QStringLiteral("jsonrpc"), QStringLiteral("2.0") },
        { QStringLiteral("id"), qint64(m_counter) },
        { QStringLiteral("method"), method },
        { QStringLiteral("params"), args },
    };
    QNetworkRequest post(m_endpoint);
    post.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    QNetworkReply* reply = m_network.post(post, QJsonDocument(request).toJson());
    while (!reply->isFinished()) {
        QCoreApplication::processEvents();
        QThread::msleep(10);
    }
    const QByteArray body = reply->readAll();
    reply->deleteLater();
    return parse(body);
}

rpc::response rpc::parse(const QByteArray& body)
{
    const QJsonObject answer = QJsonDocument::fromJson(body).object();
    response r;
    if (!answer.contains(QLatin1String("jsonrpc")) || !answer.contains(QLatin1String("id"))) {
        r.code = -1;
        r.message = QStringLiteral("Not a valid JsonRPC response");
        return r;
    }
    const QJsonValue result = answer.value(QLatin1String("result"));
    if (result.isObject())
        r.fields = result.toObject().toVariantMap();
    else if (!result.isUndefined())
        r.value = result.toVariant();
    return r;
}

} // namespace delivery
