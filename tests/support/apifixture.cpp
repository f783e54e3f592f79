#include "support/apifixture.h"

#include "database/dbmanager.h"
#include "licence/licence.h"
#include "terminal/identifiers.h"
#include "worker/webapiworker.h"

#include <QUrl>

const QString ApiFixture::kKey = QStringLiteral("test-terminal-key-0123456789");

ApiFixture::ApiFixture(const QString &suite) : m_suite(suite) {}

ApiFixture::~ApiFixture()
{
    m_worker.reset();
    m_manager.reset();
    for (const QString &name : {m_infoConnection, m_zmtConnection})
        QSqlDatabase::removeDatabase(name);
}

bool ApiFixture::setUp()
{
    if (!TestServer::sameTimeZone(&m_error))
        return false;
    const QString schema = QStringLiteral(WEBAPI_SOURCE_DIR "/database/schema/");
    m_info.reset(new TestDatabase(m_suite + QStringLiteral("_info"), schema + QStringLiteral("infodb.sql")));
    m_customer.reset(new TestDatabase(m_suite, schema + QStringLiteral("customer.sql")));
    // The Pragma value must hold the word "token".
    m_token = QStringLiteral("token-") + m_customer->name();
    const bool ready = m_info->isReady() && m_customer->isReady()
        && m_info->exec(QStringLiteral("INSERT INTO `schemas` (token, name, user, pass, status) VALUES ('%1', '%2', '%3', '%4', 1)")
                            .arg(m_token, m_customer->name(), TestServer::user(),
                                 QString::fromLatin1(TestServer::password().toUtf8().toBase64())))
        && m_customer->exec(QStringLiteral("INSERT INTO vars (name, value) VALUES ('webapi.enabled', '1'), "
                                           "('webapi.key.terminals', '%1'), ('webapi.devices', '*')")
                                .arg(Licence::keyDigest(kKey)));
    if (!ready) {
        m_error = m_info->error() + m_customer->error();
        return false;
    }
    m_infoConnection = QStringLiteral("QHX.InfoDB.") + m_info->name();
    m_zmtConnection = QStringLiteral("QHX.ZMTDB.") + m_info->name();
    QSqlDatabase infoDb = TestServer::connect(m_infoConnection, m_info->name());
    infoDb.close();  // the manager's own open attempt is what isInfoDB reports
    m_manager.reset(new DBManager());
    m_manager->setInfoDB(infoDb);
    m_manager->setZmtDB(QSqlDatabase::cloneDatabase(infoDb, m_zmtConnection));
    m_worker.reset(new WebApiWorker(QStringLiteral("2.4.1")));
    m_worker->setDbManager(m_manager.data());
    m_error = m_manager->isInfoDB() ? QString() : QStringLiteral("InfoDB does not open");
    return m_error.isEmpty();
}

QStringList ApiFixture::terminalHeaders(const QString &tid) const
{
    const QStringList lines = {QStringLiteral("Pragma: ") + m_token, QStringLiteral("Content-Type: application/json"),
                               QStringLiteral("Authorization: Bearer ") + kKey, QStringLiteral("X-ZMT-TID: ") + tid};
    return tid.isEmpty() ? QStringList(lines.mid(0, 3)) : lines;
}

QStringList ApiFixture::adminHeaders(const QString &apiToken) const
{
    return {QStringLiteral("Pragma: ") + m_token, QStringLiteral("Authorization: Bearer ") + kKey,
            QStringLiteral("X-ZMT-AID: ") + apiToken};
}

QByteArray ApiFixture::call(const QString &method, const QString &path, const QStringList &headers, const QByteArray &body)
{
    return m_worker->buildResponse(method, QUrl(QStringLiteral("http://localhost") + path), headers, body);
}

QString ApiFixture::addTerminal(uint vorixID, const QString &name)
{
    const bool added = m_customer->exec(QStringLiteral("INSERT INTO term (vorixID, type, status, name) VALUES (%1, 'API', 1, '%2')").arg(vorixID).arg(name));
    return added ? encodeId(m_customer->scalar(QStringLiteral("SELECT LAST_INSERT_ID()")).toUInt(), vorixID) : QString();
}
