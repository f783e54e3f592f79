// docs/openapi.yaml against the code: it parses, documents exactly the routes served, and
// carries the error catalogue as it is. Python's YAML parser (python3-yaml) reads the file.
#include "support/httpreply.h"
#include "support/routelists.h"

#include <QProcess>
#include <QtTest>

class TestOpenApi : public QObject
{
    Q_OBJECT

private slots:
    void matchesTheCode()
    {
        QProcess python;
        // Debian's interpreter, the one python3-yaml serves.
        python.start("/usr/bin/python3", {"-c", "import json, sys, yaml; json.dump(yaml.safe_load(open(sys.argv[1])), "
                                                "sys.stdout, default=str)", WEBAPI_SOURCE_DIR "/docs/openapi.yaml"});
        QVERIFY2(python.waitForFinished(30000) && python.exitCode() == 0, python.readAllStandardError().constData());
        const QVariantMap doc = QJsonDocument::fromJson(python.readAllStandardOutput()).toVariant().toMap();

        // PUT and DELETE stand switched off; turning them on needs their paths documented.
        QStringList documented;
        const QVariantMap paths = doc.value("paths").toMap();
        for (auto path = paths.begin(); path != paths.end(); ++path) {
            for (const QString &method : path.value().toMap().keys())
                documented << method + ' ' + path.key();
        }
        documented.sort();
        QCOMPARE(documented, RouteLists().routes());

        // The catalogue as GET response-errors serves it, in the same order.
        const auto rows = [](const QVariantList &list, const char *status) {
            QStringList listed;
            for (const QVariant &row : list) {
                const QVariantMap map = row.toMap();
                listed << QStringList{map["code"].toString(), map[status].toString(), map["message"].toString()}.join('\t');
            }
            return listed;
        };
        QCOMPARE(rows(doc.value("x-error-codes").toList(), "status"),
                 rows(HttpReply::parse(testData("spine/response-errors.http")).json().toVariant().toList(), "statusCode"));
    }
};

QTEST_GUILESS_MAIN(TestOpenApi)
#include "tst_openapi.moc"
