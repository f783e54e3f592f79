// Settings that fall back on the environment: which source wins, what type comes back, and
// which environment variable a key consults.
#include "settings/envirosettings.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

class TestEnviroSettings : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void environmentKey_data();
    void environmentKey();
    void lookupOrder_data();
    void lookupOrder();
    void groupAndPrefixReachEnvironment();
    void environmentSeenAtConstructionOnly();
    void prefixChangedOnce();

private:
    QTemporaryDir m_dir;
    QString m_file;
};

void TestEnviroSettings::initTestCase()
{
    // A copy, so that no run can write to the checked-in file.
    QVERIFY(m_dir.isValid());
    m_file = m_dir.filePath(QStringLiteral("store.ini"));
    QVERIFY(QFile::copy(QStringLiteral(WEBAPI_TEST_DATA "/settings/store.ini"), m_file));

    qputenv("TSTENV_STORED", "from-environment");
    qputenv("TSTENV_ONLYENV", "env-value");
    qputenv("TSTENV_EMPTY", "");
    qputenv("TSTENV_DB_PORT", "3307");
    qunsetenv("TSTENV_MISSING");
}

void TestEnviroSettings::environmentKey_data()
{
    QTest::addColumn<QString>("prefix");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("expected");
    QTest::newRow("prefix") << "svc" << "db/host" << "SVC_DB_HOST";
    QTest::newRow("no prefix") << "" << "db/host" << "DB_HOST";
    QTest::newRow("only slashes replaced") << "web" << "a.b/c-d e" << "WEB_A.B_C-D E";
    QTest::newRow("nested prefix") << "webapi/x" << "listen/port" << "WEBAPI_X_LISTEN_PORT";
}

void TestEnviroSettings::environmentKey()
{
    QFETCH(QString, prefix);
    QFETCH(QString, key);
    QFETCH(QString, expected);
    EnviroSettings settings(m_file, QSettings::IniFormat);
    settings.setPrefix(prefix);
    QCOMPARE(settings.environmentKey(key), expected);
}

void TestEnviroSettings::lookupOrder_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QVariant>("defaultValue");
    QTest::addColumn<QVariant>("expected");
    QTest::newRow("stored beats environment") << "stored" << QVariant(7) << QVariant(QStringLiteral("42"));
    QTest::newRow("environment beats default") << "onlyenv" << QVariant(7) << QVariant(QStringLiteral("env-value"));
    QTest::newRow("empty variable counts as set") << "empty" << QVariant(7) << QVariant(QString(""));
    QTest::newRow("integer default comes back as text") << "missing" << QVariant(5) << QVariant(QStringLiteral("5"));
    QTest::newRow("invalid default gives empty text") << "missing" << QVariant() << QVariant(QString(""));
}

void TestEnviroSettings::lookupOrder()
{
    QFETCH(QString, key);
    QFETCH(QVariant, defaultValue);
    QFETCH(QVariant, expected);
    EnviroSettings settings(m_file, QSettings::IniFormat);
    settings.setPrefix(QStringLiteral("tstenv"));
    const QVariant actual = settings.value(key, defaultValue);
    QVERIFY(actual.isValid());
    QCOMPARE(int(actual.type()), int(QVariant::String));
    QCOMPARE(actual, expected);
}

void TestEnviroSettings::groupAndPrefixReachEnvironment()
{
    EnviroSettings settings(m_file, QSettings::IniFormat);
    settings.setPrefix(QStringLiteral("tstenv"));
    settings.beginGroup(QStringLiteral("db"));
    QCOMPARE(settings.value(QStringLiteral("port"), 3306).toString(), QStringLiteral("3307"));
    // Inside the group the stored key is found as db/host, not as host.
    QCOMPARE(settings.value(QStringLiteral("host"), QStringLiteral("x")).toString(), QStringLiteral("stored-host"));
    settings.endGroup();
    QCOMPARE(settings.value(QStringLiteral("port"), 1).toString(), QStringLiteral("1"));
}

void TestEnviroSettings::environmentSeenAtConstructionOnly()
{
    EnviroSettings settings(m_file, QSettings::IniFormat);
    settings.setPrefix(QStringLiteral("tstenv"));
    qputenv("TSTENV_LATE", "late");
    QCOMPARE(settings.value(QStringLiteral("late"), QStringLiteral("default")).toString(), QStringLiteral("default"));
    qunsetenv("TSTENV_LATE");
}

void TestEnviroSettings::prefixChangedOnce()
{
    EnviroSettings settings(m_file, QSettings::IniFormat);
    QSignalSpy spy(&settings, &EnviroSettings::prefixChanged);
    settings.setPrefix(QString());
    QCOMPARE(spy.count(), 0);
    settings.setPrefix(QStringLiteral("svc"));
    settings.setPrefix(QStringLiteral("svc"));
    QCOMPARE(spy.count(), 1);
    QCOMPARE(settings.property("prefix").toString(), QStringLiteral("svc"));
    settings.setProperty("prefix", QStringLiteral("other"));
    QCOMPARE(spy.count(), 2);
}

QTEST_GUILESS_MAIN(TestEnviroSettings)
#include "tst_envirosettings.moc"
