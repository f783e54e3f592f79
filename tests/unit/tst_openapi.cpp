// docs/openapi.yaml against the code: it parses, documents exactly the routes served, and
// carries the error catalogue as it is. Python's YAML parser (python3-yaml) reads the file.
#include "response/response.h"
#include "support/routelists.h"

#include <QMetaEnum>
#include <QProcess>
#include <QtTest>

class TestOpenApi : public QObject
{
    Q_OBJECT

private slots:
    void matchesTheCode();
};

void TestOpenApi::matchesTheCode()
{
    QProcess python;
    // Debian's interpreter, the one python3-yaml serves.
    python.start(QStringLiteral("/usr/bin/python3"),
                 {QStringLiteral("-c"),
                  QStringLiteral("import json, sys, yaml; json.dump(yaml.safe_load(open(sys.argv[1])), sys.stdout, default=str)"),
                  QStringLiteral(WEBAPI_SOURCE_DIR "/docs/openapi.yaml")});
    QVERIFY2(python.waitForFinished(30000), "python3 with python3-yaml is needed (scripts/setup)");
    QVERIFY2(python.exitCode() == 0, python.readAllStandardError().constData());
    const QVariantMap doc = QJsonDocument::fromJson(python.readAllStandardOutput()).toVariant().toMap();

    // PUT and DELETE stand switched off; turning them on needs their paths documented.
    QStringList documented;
    const QVariantMap paths = doc.value(QStringLiteral("paths")).toMap();
    for (auto path = paths.begin(); path != paths.end(); ++path) {
        for (const QString &method : path.value().toMap().keys())
            documented << method + QLatin1Char(' ') + path.key();
    }
    documented.sort();
    QCOMPARE(documented, RouteLists().routes());

    QStringList expected;
    const QMetaEnum errors = QMetaEnum::fromType<Response::ResponseErrors>();
    for (int i = 0; i < errors.keyCount(); ++i) {
        const uint code = uint(errors.value(i));
        expected << QStringLiteral("%1 %2 %3 %4").arg(QLatin1String(errors.key(i)), QString::number(code),
                                                      QString::number(Response::httpStatusForError(code)),
                                                      Response::errorMessage(code));
    }
    QStringList listed;
    for (const QVariant &row : doc.value(QStringLiteral("x-error-codes")).toList()) {
        const QVariantMap map = row.toMap();
        listed << QStringLiteral("%1 %2 %3 %4").arg(map.value("name").toString(), map.value("code").toString(),
                                                    map.value("status").toString(), map.value("message").toString());
    }
    QCOMPARE(listed, expected);
}

QTEST_GUILESS_MAIN(TestOpenApi)
#include "tst_openapi.moc"
