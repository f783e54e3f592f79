// HTTPS in the real host with a self-signed certificate made by the openssl command: the
// plug-in's bytes unchanged over TLS, connections kept alive, and plain or silent clients
// on the TLS port turned away without harm.
#include "support/apifixture.h"
#include "support/hostprocess.h"

#include <QTemporaryDir>
#include <QtTest>

class TestTls : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void startFailures_data();
    void startFailures();
    void pluginBytesOverTls();
    void keepAliveOverTls();
    void plainClientTurnedAway();
    void silentClientClosed();

private:
    bool openssl(const QStringList &args);
    // curl against the host; stdout, or empty with the reason logged.
    QByteArray curl(const QStringList &args);
    QMap<QString, QString> tlsSettings(const QString &certificate, const QString &key) const;
    QString url(const QString &path) const { return QStringLiteral("https://127.0.0.1:%1%2").arg(m_host.port()).arg(path); }

    QTemporaryDir m_dir;
    QString m_cert;
    QString m_key;
    QScopedPointer<ApiFixture> m_fx;
    HostProcess m_host;
};

bool TestTls::openssl(const QStringList &args)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(QStringLiteral("openssl"), args);
    if (process.waitForFinished(30000) && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0)
        return true;
    qWarning("openssl %s: %s", qPrintable(args.join(' ')), process.readAll().constData());
    return false;
}

QByteArray TestTls::curl(const QStringList &args)
{
    QProcess process;
    process.start(QStringLiteral("curl"), QStringList{QStringLiteral("-sS"), QStringLiteral("--cacert"), m_cert} + args);
    if (!process.waitForFinished(30000) || process.exitCode() != 0) {
        qWarning("curl %s: %s", qPrintable(args.join(' ')), process.readAllStandardError().constData());
        return QByteArray();
    }
    return process.readAllStandardOutput();
}

QMap<QString, QString> TestTls::tlsSettings(const QString &certificate, const QString &key) const
{
    return {{QStringLiteral("WEBAPI_TLS_CERTIFICATE"), certificate}, {QStringLiteral("WEBAPI_TLS_KEY"), key},
            {QStringLiteral("WEBAPI_LIMITS_TIMEOUT"), QStringLiteral("2")}};
}

void TestTls::initTestCase()
{
    QVERIFY(m_dir.isValid());
    m_cert = m_dir.filePath(QStringLiteral("cert.pem"));
    m_key = m_dir.filePath(QStringLiteral("key.pem"));
    QVERIFY(openssl({QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-newkey"), QStringLiteral("ec"),
                     QStringLiteral("-pkeyopt"), QStringLiteral("ec_paramgen_curve:prime256v1"), QStringLiteral("-nodes"),
                     QStringLiteral("-keyout"), m_key, QStringLiteral("-out"), m_cert, QStringLiteral("-days"),
                     QStringLiteral("2"), QStringLiteral("-subj"), QStringLiteral("/CN=127.0.0.1"),
                     QStringLiteral("-addext"), QStringLiteral("subjectAltName=IP:127.0.0.1")}));
    QVERIFY(openssl({QStringLiteral("genpkey"), QStringLiteral("-algorithm"), QStringLiteral("EC"), QStringLiteral("-pkeyopt"),
                     QStringLiteral("ec_paramgen_curve:prime256v1"), QStringLiteral("-out"),
                     m_dir.filePath(QStringLiteral("other-key.pem"))}));
    m_fx.reset(new ApiFixture(QStringLiteral("tls")));
    QVERIFY2(m_fx->setUp(), qPrintable(m_fx->error()));
    QVERIFY2(m_host.start(m_fx->info().name(), tlsSettings(m_cert, m_key)), m_host.log().constData());
    QVERIFY(m_host.log().contains("listening on https://127.0.0.1:"));
}

void TestTls::startFailures_data()
{
    QTest::addColumn<QString>("certificate");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("reason");
    QTest::newRow("certificate alone") << m_cert << "" << "tls/certificate and tls/key go together";
    QTest::newRow("no such certificate") << m_dir.filePath(QStringLiteral("none.pem")) << m_key
                                         << "cannot load the TLS certificate";
    QTest::newRow("key of another certificate") << m_cert << m_dir.filePath(QStringLiteral("other-key.pem"))
                                                << "cannot load the TLS key";
}

void TestTls::startFailures()
{
    QFETCH(QString, certificate);
    QFETCH(QString, key);
    QFETCH(QString, reason);
    HostProcess host;
    QVERIFY(!host.start(m_fx->info().name(), tlsSettings(certificate, key)));
    int exitCode = -1;
    QVERIFY(host.waitForExit(10000, &exitCode));
    QCOMPARE(exitCode, 2);
    const QList<QByteArray> lines = host.log().trimmed().split('\n');
    QCOMPARE(lines.size(), 1);
    QVERIFY2(lines.first().contains(reason.toUtf8()), lines.first().constData());
}

void TestTls::pluginBytesOverTls()
{
    const QByteArray raw = curl({QStringLiteral("-i"), QStringLiteral("-H"), QStringLiteral("Pragma: ") + m_fx->token(),
                                 QStringLiteral("-H"), QStringLiteral("Authorization: Bearer ") + ApiFixture::kKey,
                                 url(QStringLiteral("/webapi/info"))});
    COMPARE_EXPECTED(maskTms(raw), "spine/info.http");
}

void TestTls::keepAliveOverTls()
{
    // Two transfers in one curl run: the second reuses the first one's connection.
    const QByteArray counts = curl({QStringLiteral("-o"), QStringLiteral("/dev/null"), QStringLiteral("-o"),
                                    QStringLiteral("/dev/null"), QStringLiteral("-w"), QStringLiteral("%{http_code}:%{num_connects} "),
                                    url(QStringLiteral("/healthz")), url(QStringLiteral("/healthz"))});
    QCOMPARE(counts, QByteArray("200:1 200:0 "));
}

void TestTls::plainClientTurnedAway()
{
    HttpConnection plain(m_host.port());
    QVERIFY(plain.send(HttpConnection::format("GET", "/webapi/info", {"Pragma: " + m_fx->token().toUtf8()})));
    QVERIFY(plain.waitForClose(5000));
    QCOMPARE(curl({QStringLiteral("-o"), QStringLiteral("/dev/null"), QStringLiteral("-w"), QStringLiteral("%{http_code}"),
                   url(QStringLiteral("/healthz"))}),
             QByteArray("200"));
}

void TestTls::silentClientClosed()
{
    // No handshake within limits/timeout: the connection is dropped.
    HttpConnection silent(m_host.port());
    QVERIFY(silent.isConnected());
    QVERIFY(silent.waitForClose(10000));
}

QTEST_GUILESS_MAIN(TestTls)
#include "tst_tls.moc"
