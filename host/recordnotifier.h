#ifndef RECORDNOTIFIER_H
#define RECORDNOTIFIER_H

#include <QByteArray>
#include <QNetworkAccessManager>
#include <QObject>
#include <QUrl>

// Receives the plug-in's recordCreated on the main thread: logs each event and, with a
// webhook URL, POSTs it as JSON with a few retries. Requests never wait for it.
class RecordNotifier : public QObject
{
    Q_OBJECT

public:
    explicit RecordNotifier(const QUrl &webhook, QObject *parent = nullptr);

    int pending() const { return m_pending; }

public slots:
    void recordCreated(const QString &tbl, uint id, const QString &token, quint8 flags);

signals:
    void idle();

private:
    void post(const QByteArray &payload, int attempt);
    void finished();

    QUrl m_webhook;
    QNetworkAccessManager m_network;
    int m_pending = 0;
};

#endif
