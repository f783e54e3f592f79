// Settings that fall back on the environment: which source wins, what type comes back, and
// which environment variable a key consults.
#include "settings/envirosettings.h"

#include <QtTest>

class TestEnviroSettings : public QObject
{
    Q_OBJECT

private slots:
    void lookupOrder_data()
    {
        QTest::addColumn<QString>("group");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QVariant>("defaultValue");
        QTest::addColumn<QString>("expected");
        qputenv("TSTENV_STORED", "from-environment");
        qputenv("TSTENV_ONLYENV", "env-value");
        qputenv("TSTENV_EMPTY", "");
        qputenv("TSTENV_DB_PORT", "3307");
        qputenv("TSTENV_DB_HOST", "env-host");
        qunsetenv("TSTENV_MISSING");
        QTest::newRow("stored beats environment") << "" << "stored" << QVariant(7) << "42";
        QTest::newRow("environment beats default") << "" << "onlyenv" << QVariant(7) << "env-value";
        QTest::newRow("empty variable counts as set") << "" << "empty" << QVariant(7) << "";
        QTest::newRow("integer default comes back as text") << "" << "missing" << QVariant(5) << "5";
        // The group joins the prefix in the variable's name: TSTENV_DB_PORT.
        QTest::newRow("group in the environment key") << "db" << "port" << QVariant(3306) << "3307";
        QTest::newRow("stored key inside the group") << "db" << "host" << QVariant("x") << "stored-host";
    }
    void lookupOrder()
    {
        QFETCH(QString, group);
        QFETCH(QString, key);
        QFETCH(QVariant, defaultValue);
        QFETCH(QString, expected);
        // Read only: the checked-in file is never written.
        EnviroSettings settings(QStringLiteral(WEBAPI_TEST_DATA "/settings/store.ini"), QSettings::IniFormat);
        settings.setPrefix(QStringLiteral("tstenv"));
        if (!group.isEmpty())
            settings.beginGroup(group);
        const QVariant actual = settings.value(key, defaultValue);
        QCOMPARE(int(actual.type()), int(QVariant::String));
        QCOMPARE(actual.toString(), expected);
    }
};

QTEST_GUILESS_MAIN(TestEnviroSettings)
#include "tst_envirosettings.moc"
