// DBManager against the private MariaDB: which InfoDB rows give a customer connection, what
// is remembered of a token, and a connection per thread. (The token lists, stamps and the
// queue of unused connections are dormant: nothing in the host or the plug-in drives them.)
// Also rows read where the client keeps them, against the driver's values.
#include "database/dbmanager.h"
#include "response/jsonwriter.h"
#include "response/sqlrow.h"
#include "support/apifixture.h"

#include <QSqlQuery>
#include <QSqlRecord>
#include <QThread>
#include <QtTest>

#include <functional>

using Probe = std::function<QString()>;
Q_DECLARE_METATYPE(Probe)

class TestDBManager : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        m_fx.reset(new ApiFixture("dbm"));
        QVERIFY2(m_fx->setUp(), qPrintable(m_fx->error()));
        // What an unusable token falls back to.
        QSqlDatabase::cloneDatabase(m_fx->manager()->infoDB(), QSqlDatabase::defaultConnection);
    }
    void init()
    {
        QVERIFY(m_fx->info().exec("DELETE FROM `schemas`"));
        m_manager.reset(new DBManager());
        QSqlDatabase info = m_fx->manager()->infoDB();
        info.close();  // the manager's own open attempt is what isInfoDB reports
        m_manager->setInfoDB(info);
        m_manager->setZmtDB(m_fx->manager()->zmtDB());
        QVERIFY(m_manager->isInfoDB());
    }
    void cleanup()
    {
        m_manager.reset();
        for (const QString &name : QSqlDatabase::connectionNames().filter("_dbc_"))
            QSqlDatabase::removeDatabase(name);
    }
    void manager_data()
    {
        QTest::addColumn<QString>("schemas");  // rows of (token, name, user, pass, status, maintenance, recalc)
        QTest::addColumn<Probe>("probe");
        QTest::addColumn<QString>("expected");
        // Braced lists run their calls in order, so a probe lists its steps in one.
        const auto scheme = [](const QByteArray &pass, int status = 1, const QString &user = "$USER") {
            return QString("('tok', '$DB', '%1', %2, %3, NULL, NULL)").arg(user, pass.isNull() ? "NULL" : "'" + pass.toBase64() + "'").arg(status);
        };
        const QByteArray pass = TestServer::password().toUtf8();
        const QString usable = scheme(pass);
        const Probe tok = [this] { return served("tok"); };
        QTest::newRow("usable row") << usable << tok << "own";
        QTest::newRow("unknown token") << "" << tok << "default";
        QTest::newRow("inactive") << scheme(pass, 0) << tok << "default";
        QTest::newRow("pass decodes to NUL") << scheme(QByteArray("\0abc", 4)) << tok << "default";
        QTest::newRow("empty user") << scheme(pass, 1, "") << tok << "default";
        // Only the part before a NUL is the password.
        QTest::newRow("pass cut at NUL") << scheme(pass + QByteArray("\0tail", 5)) << Probe([this] {
            return QStringList{served("tok"), m_manager->cachedScheme("tok").pass}.join(", ");
        }) << "own, " + TestServer::password();
        // The InfoDB is asked once per thread and token: a row gone since is not read again.
        QTest::newRow("asked once") << usable << Probe([this] {
            return QStringList{served("tok"), m_fx->info().exec("DELETE FROM `schemas`") ? "" : "?", served("tok")}.join(", ");
        }) << "own, , own";
        // A customer added meanwhile is seen at once only when unknown tokens are not remembered.
        for (const int seconds : {0, 60}) {
            QTest::addRow("unknown token remembered %ds", seconds) << "" << Probe([this, seconds, usable] {
                ConnectionSettings settings;
                settings.unknownTokenCache = seconds;
                m_manager->setConnectionSettings(settings);
                return QStringList{served("tok"), insert(usable) ? "" : "?", served("tok")}.join(", ");
            }) << (seconds ? "default, , default" : "default, , own");
        }
        // Another thread gets a handle of its own, and asks the InfoDB itself.
        QTest::newRow("per thread") << usable << Probe([this] {
            QString other;
            QScopedPointer<QThread> thread(QThread::create([&] {
                other = served("tok") + ", " + m_manager->connectionNameFor("tok");
                QSqlDatabase::removeDatabase(other.section(", ", 1));
            }));
            thread->start();
            const QString inThread = thread->wait(30000) ? other.section(", ", 0, 0) : "stuck";
            return QStringList{inThread, served("tok"), other.endsWith("_dbc_tok") && other.section(", ", 1) != m_manager->connectionNameFor("tok") ? "apart" : other}.join(", ");
        }) << "own, own, apart";
    }
    void manager()
    {
        QFETCH(QString, schemas);
        QFETCH(Probe, probe);
        QFETCH(QString, expected);
        QVERIFY(insert(schemas));
        QCOMPARE(probe(), expected);
    }

    void rowsReadInPlace()
    {
        // Column types the reads meet, at their edges and NULL: SqlRow reads what the driver's
        // values say, whether in place or through them.
        QSqlDatabase db = m_fx->customer().db();
        QVERIFY(m_fx->customer().exec(
            "CREATE TEMPORARY TABLE edges (i INT, u INT UNSIGNED, b BIGINT, ub BIGINT UNSIGNED, t TINYINT, y YEAR, v VARCHAR(20), "
            "x TEXT, bin VARBINARY(8), cs VARCHAR(8) COLLATE utf8mb4_bin, d DECIMAL(6,2), dt DATE)"));
        QVERIFY(m_fx->customer().exec(
            "INSERT INTO edges VALUES (-2147483648, 4294967295, -9223372036854775808, 18446744073709551615, -1, 2024, "
            "'Jiří \\\"\\\\\\n\\t', X'EFBBBF41', X'00FF', 'bin', -12.5, '2024-03-31'), "
            "(NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL), "
            "(0, 0, 9007199254740993, 1, 1, 1901, '', X'F09F98807F', '', 'true', 0, NULL)"));
        QSqlQuery expected(db), actual(db);
        QVERIFY(expected.exec("SELECT * FROM edges") && actual.exec("SELECT * FROM edges"));
        SqlRow row(actual);
        JsonWriter want(false), got(false);
        want.beginArray();
        got.beginArray();
        while (expected.next()) {
            QVERIFY(row.next());
            for (int column = 0; column < expected.record().count(); ++column) {
                const QVariant value = expected.value(column);
                QCOMPARE(row.isNull(column), value.isNull());
                QCOMPARE(row.toLongLong(column), value.toLongLong());
                QCOMPARE(row.toBool(column), value.toBool());
                want.string(value.toString());
                row.writeText(got, column);
                want.stored(value);
                row.writeStored(got, column);
            }
        }
        QVERIFY(!row.next());
        want.endArray();
        got.endArray();
        QCOMPARE(got.take(), want.take());
    }

private:
    // "own" when the token gets its customer's connection, "default" when the fallback.
    QString served(const QString &token)
    {
        QSqlDatabase db = m_manager->getDatabase(token);
        if (db.connectionName() == QSqlDatabase::defaultConnection)
            return m_manager->hasConnection(token) || m_manager->isManagedConnection(token) ? "default, yet kept" : "default";
        // Handed out closed: its user opens a clone of its own.
        const bool opens = !db.isOpen() && db.open() && db.databaseName() == m_fx->customer().name();
        db.close();
        return opens && db.connectionName() == m_manager->connectionNameFor(token) && m_manager->isManagedConnection(token)
            ? "own" : "wrong: " + db.connectionName();
    }
    // Rows as manager_data() gives them.
    bool insert(QString schemas)
    {
        schemas.replace("$DB", m_fx->customer().name()).replace("$USER", TestServer::user());
        return schemas.isEmpty()
            || m_fx->info().exec("INSERT INTO `schemas` (token, name, user, pass, status, maintenance, recalc) VALUES " + schemas);
    }

    QScopedPointer<ApiFixture> m_fx;  // its InfoDB and customer database; its own manager only lends them
    QScopedPointer<DBManager> m_manager;
};

QTEST_GUILESS_MAIN(TestDBManager)
#include "tst_dbmanager.moc"
