// Settings that fall back on the environment: which source wins, and which environment
// variable a key consults.
#include "settings/envirosettings.h"

#include <QtTest>

class TestEnviroSettings : public QObject
{
    Q_OBJECT

private slots:
    void lookupOrder_data()
    {
        QTest::addColumn<QString>("key");  // "group/key" begins the group first
        QTest::addColumn<QString>("expected");
        qputenv("TSTENV_STORED", "from-environment");
        qputenv("TSTENV_EMPTY", "");
        qputenv("TSTENV_DB_PORT", "3307");
        qputenv("TSTENV_DB_HOST", "env-host");
        QTest::newRow("stored beats environment") << "stored" << "42";
        QTest::newRow("empty variable counts as set") << "empty" << "";
        QTest::newRow("neither: the default, as text") << "missing" << "5";
        QTest::newRow("group in the environment key") << "db/port" << "3307";
        QTest::newRow("stored key inside the group") << "db/host" << "stored-host";
    }
    void lookupOrder()
    {
        QFETCH(QString, key);
        QFETCH(QString, expected);
        // Read only: the checked-in file is never written.
        EnviroSettings settings(QStringLiteral(WEBAPI_TEST_DATA "/settings/store.ini"), QSettings::IniFormat);
        settings.setPrefix(QStringLiteral("tstenv"));
        if (key.contains('/'))
            settings.beginGroup(key.section('/', 0, 0));
        QCOMPARE(settings.value(key.section('/', -1), 5).toString(), expected);
    }
};

QTEST_GUILESS_MAIN(TestEnviroSettings)
#include "tst_envirosettings.moc"
