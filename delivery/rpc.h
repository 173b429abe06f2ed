#pragma once

#include <QNetworkAccessManager>
#include <QString>
#include <QUrl>
#include <QVariant>
#include <QVariantList>
#include <QVariantMap>

#include <cstdint>

namespace delivery {

// A blocking JSON-RPC 2.0 call over HTTP POST, one object per call. The caller's thread
// keeps processing its events while it waits, so its slots and timers may run inside a
// call; there is no time-out, a transport failure ends the wait.
class rpc
{
public:
    struct response
    {
        int32_t code = 0; // 0, or -1 when the answer isn't JSON-RPC
        QString message; // empty on success
        QVariantMap fields; // "result" when it is an object
        QVariant value; // "result" when it isn't
    };

    static inline const QString path = QStringLiteral("inrpcapi/");
    static inline const QString default_endpoint = QStringLiteral("http://update.kelmar.org:8088/inrpcapi/");

    explicit rpc(const QUrl& endpoint = QUrl(default_endpoint));
    virtual ~rpc();
    Q_DISABLE_COPY_MOVE(rpc)

    response call(const QString& method, const QVariantList& params);

    // What a body says as a response; exposed for the parser's tests.
    static response parse(const QByteArray& body);

private:
    QNetworkAccessManager m_network;
    QUrl m_endpoint;
    uint32_t m_counter = 0;
};

} // namespace delivery
