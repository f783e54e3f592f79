#include "recordnotifier.h"

#include "hostlog.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>

namespace {

const int kAttempts = 4;
const int kTransferTimeoutMs = 5000;
const int kMaxPending = 10000;  // a dead receiver must not eat all memory

} // namespace

RecordNotifier::RecordNotifier(const QUrl &webhook, QObject *parent)
    : QObject(parent)
    , m_webhook(webhook)
{
}

void RecordNotifier::recordCreated(const QString &tbl, uint id, const QString &token, quint8 flags)
{
    hostLog(QStringLiteral("recordCreated table=%1 id=%2 token=%3 flags=%4").arg(tbl).arg(id).arg(token).arg(flags));
    if (m_webhook.isEmpty())
        return;
    if (m_pending >= kMaxPending) {
        hostLog(QStringLiteral("webhook: %1 deliveries pending, event %2 %3 dropped").arg(m_pending).arg(tbl).arg(id));
        return;
    }
    const QJsonObject event{{QStringLiteral("table"), tbl},
                            {QStringLiteral("id"), qint64(id)},
                            {QStringLiteral("token"), token},
                            {QStringLiteral("flags"), int(flags)}};
    ++m_pending;
    post(QJsonDocument(event).toJson(QJsonDocument::Compact), 1);
}

void RecordNotifier::post(const QByteArray &payload, int attempt)
{
    QNetworkRequest request(m_webhook);
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    request.setTransferTimeout(kTransferTimeoutMs);
    QNetworkReply *reply = m_network.post(request, payload);
    connect(reply, &QNetworkReply::finished, this, [this, reply, payload, attempt] {
        reply->deleteLater();
        const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        if (reply->error() == QNetworkReply::NoError && status >= 200 && status < 300)
            return finished();
        const QString why = reply->error() != QNetworkReply::NoError ? reply->errorString()
                                                                      : QStringLiteral("HTTP %1").arg(status);
        if (attempt >= kAttempts) {
            hostLog(QStringLiteral("webhook: giving up after %1 attempts: %2").arg(attempt).arg(why));
            return finished();
        }
        // Backing off 0.5 s, 1 s, 2 s gives a restarting receiver a chance.
        QTimer::singleShot(250 << attempt, this, [this, payload, attempt] { post(payload, attempt + 1); });
    });
}

void RecordNotifier::finished()
{
    if (--m_pending == 0)
        emit idle();
}
