// docs/openapi.yaml against the code: it reads as YAML, describes every route the worker and
// the admin controllers serve and nothing else, and carries the error catalogue as it is.
#include "controllers/controllerfactory.h"
#include "plugin/httpplugininterface.h"
#include "response/response.h"
#include "support/yamlreader.h"
#include "worker/webapiworker.h"

#include <QMetaEnum>
#include <QPluginLoader>
#include <QtTest>

namespace {

// The worker's route lists are protected; a subclass may read them.
class RouteLists : public WebApiWorker
{
public:
    RouteLists() : WebApiWorker(QStringLiteral("test")) {}
    QStringList verbs() const { return m_verbs; }
    QStringList getPaths() const { return m_getPaths; }
    QStringList postPaths() const { return m_postPaths; }
    QStringList withoutTerminal() const { return m_terminalOnlyPaths; }
};

// GET words whose handler reads a person's identifier as the second word.
const QStringList kWithPersonId{QStringLiteral("person"), QStringLiteral("present")};
// The period words each admin controller tells apart in its process().
const QList<QPair<QString, QStringList>> kAdminRoutes{
    {QStringLiteral("attendance"), {QStringLiteral("daily"), QStringLiteral("monthly")}},
    {QStringLiteral("report"),
     {QStringLiteral("daily"), QStringLiteral("monthly"), QStringLiteral("daily-detailed"), QStringLiteral("monthly-detailed")}},
    {QStringLiteral("work"), {QStringLiteral("daily"), QStringLiteral("monthly")}},
};

struct Route
{
    QString path;
    QString method;  // lower case, as OpenAPI keys it
    bool admin;
    bool needsTerminal;
};

QList<Route> routes()
{
    const RouteLists lists;
    QList<Route> out;
    for (const QString &word : lists.getPaths()) {
        const bool needsTerminal = !lists.withoutTerminal().contains(word);
        out.append({QLatin1Char('/') + word, QStringLiteral("get"), false, needsTerminal});
        if (kWithPersonId.contains(word))
            out.append({QStringLiteral("/%1/{id}").arg(word), QStringLiteral("get"), false, true});
    }
    for (const QString &word : lists.postPaths())
        out.append({QLatin1Char('/') + word, QStringLiteral("post"), false, word != QLatin1String("terminal")});
    for (const auto &controller : kAdminRoutes) {
        for (const QString &period : controller.second)
            out.append({QStringLiteral("/%1/%2/{filter}").arg(controller.first, period), QStringLiteral("get"), true, false});
    }
    return out;
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

class TestOpenApi : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void readerReadsTheSubset();
    void readerRefuses_data();
    void readerRefuses();
    void describesThisBuild();
    void routeDocumented_data();
    void routeDocumented();
    void onlyRoutesDocumented();
    void errorCodeDocumented_data();
    void errorCodeDocumented();
    void headersDocumented_data();
    void headersDocumented();
    void referencesResolve();

private:
    QVariant at(const QString &pointer) const;  // "#/components/schemas/Error"
    QVariantMap resolved(const QVariant &node) const;
    QSet<QString> headerNames() const;

    QVariantMap m_doc;
};

void TestOpenApi::initTestCase()
{
    YamlReader reader;
    const QVariant doc = reader.parse(readFile(QStringLiteral(WEBAPI_SOURCE_DIR "/docs/openapi.yaml")));
    QVERIFY2(doc.isValid(), qPrintable(QStringLiteral("docs/openapi.yaml ") + reader.error()));
    m_doc = doc.toMap();
}

QVariant TestOpenApi::at(const QString &pointer) const
{
    if (!pointer.startsWith(QLatin1String("#/")))
        return QVariant();
    QVariant node = m_doc;
    for (const QString &step : pointer.mid(2).split(QLatin1Char('/'))) {
        const QVariantMap map = node.toMap();
        if (!map.contains(step))
            return QVariant();
        node = map.value(step);
    }
    return node;
}

QVariantMap TestOpenApi::resolved(const QVariant &node) const
{
    const QVariantMap map = node.toMap();
    return map.contains(QStringLiteral("$ref")) ? at(map.value(QStringLiteral("$ref")).toString()).toMap() : map;
}

void TestOpenApi::readerReadsTheSubset()
{
    YamlReader reader;
    const QVariant sample = reader.parse(readFile(QStringLiteral(WEBAPI_TEST_DATA "/openapi/sample.yaml")));
    QVERIFY2(sample.isValid(), qPrintable(reader.error()));
    const QJsonDocument expected = QJsonDocument::fromJson(readFile(QStringLiteral(WEBAPI_TEST_DATA "/openapi/sample.json")));
    QCOMPARE(QJsonDocument::fromVariant(sample), expected);
}

void TestOpenApi::readerRefuses_data()
{
    QTest::addColumn<QByteArray>("yaml");
    QTest::addColumn<QString>("error");
    QTest::newRow("tab") << QByteArray("a:\n\tb: 1\n") << "line 2: tab in the indentation";
    QTest::newRow("uneven indentation") << QByteArray("a:\n  b: 1\n   c: 2\n") << "line 3: unexpected indentation";
    QTest::newRow("duplicate key") << QByteArray("a: 1\nb: 2\na: 3\n") << "line 3: duplicate key 'a'";
    QTest::newRow("colon in a plain value") << QByteArray("a: b: c\n") << "line 1: ': ' inside a plain scalar";
    QTest::newRow("open quote") << QByteArray("a: \"b\n") << "line 1: unterminated quoted scalar";
    QTest::newRow("item among keys") << QByteArray("a: 1\n- b\n") << "line 2: a sequence item where a key was expected";
    QTest::newRow("no key") << QByteArray("a: 1\njust text\n") << "line 2: expected 'key: value'";
    QTest::newRow("anchor") << QByteArray("a: &x 1\n") << "line 1: '&' cannot start a plain scalar";
    QTest::newRow("empty") << QByteArray("# nothing\n") << "line 1: empty document";
}

void TestOpenApi::readerRefuses()
{
    QFETCH(QByteArray, yaml);
    QFETCH(QString, error);
    YamlReader reader;
    QVERIFY(!reader.parse(yaml).isValid());
    QCOMPARE(reader.error(), error);
}

void TestOpenApi::describesThisBuild()
{
    QPluginLoader loader(QStringLiteral(WEBAPI_PLUGIN_DIR "/libwebapi.so"));
    auto *plugin = qobject_cast<HttpPluginInterface *>(loader.instance());
    QVERIFY2(plugin, qPrintable(loader.errorString()));
    QVERIFY(m_doc.value(QStringLiteral("openapi")).toString().startsWith(QLatin1String("3.0.")));
    QCOMPARE(at(QStringLiteral("#/info/version")).toString(), plugin->getVersion());
    // Paths are written below the plug-in's own prefix, which the server URL carries.
    const QString server = m_doc.value(QStringLiteral("servers")).toList().value(0).toMap().value(QStringLiteral("url")).toString();
    QVERIFY2(server.endsWith(plugin->paths().value(0)), qPrintable(server));
    // PUT and DELETE stand switched off; turning them on needs their paths documented here.
    QCOMPARE(RouteLists().verbs(), QStringList({QStringLiteral("GET"), QStringLiteral("POST")}));
}

void TestOpenApi::routeDocumented_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("method");
    QTest::addColumn<bool>("admin");
    QTest::addColumn<bool>("needsTerminal");
    ControllerFactory factory;
    for (const Route &route : routes()) {
        QVERIFY(!route.admin || factory.getController(route.path.section(QLatin1Char('/'), 1, 1)));
        QTest::addRow("%s %s", qPrintable(route.method), qPrintable(route.path))
            << route.path << route.method << route.admin << route.needsTerminal;
    }
}

void TestOpenApi::routeDocumented()
{
    QFETCH(QString, path);
    QFETCH(QString, method);
    QFETCH(bool, admin);
    QFETCH(bool, needsTerminal);
    const QVariantMap operation = m_doc.value(QStringLiteral("paths")).toMap().value(path).toMap().value(method).toMap();
    QVERIFY2(!operation.isEmpty(), "no operation for this route");

    QVariantList security = operation.value(QStringLiteral("security"), m_doc.value(QStringLiteral("security"))).toList();
    QCOMPARE(security.size(), 1);
    const QStringList schemes = security.first().toMap().keys();
    QVERIFY(schemes.contains(QStringLiteral("customerToken")) && schemes.contains(QStringLiteral("clientKey")));
    QCOMPARE(schemes.contains(QStringLiteral("adminToken")), admin);

    QStringList parameters;
    for (const QVariant &parameter : operation.value(QStringLiteral("parameters")).toList())
        parameters.append(resolved(parameter).value(QStringLiteral("name")).toString());
    QCOMPARE(parameters.contains(QStringLiteral("X-ZMT-TID")), needsTerminal);
    QCOMPARE(parameters.contains(QStringLiteral("id")), path.endsWith(QLatin1String("{id}")));
    QCOMPARE(parameters.contains(QStringLiteral("filter")), admin);

    const QVariantMap responses = operation.value(QStringLiteral("responses")).toMap();
    QVERIFY(responses.contains(method == QLatin1String("post") ? QStringLiteral("201") : QStringLiteral("200")));
    for (auto it = responses.begin(); it != responses.end(); ++it) {
        const QVariantMap headers = resolved(it.value()).value(QStringLiteral("headers")).toMap();
        QVERIFY2(headers.contains(QStringLiteral("X-WEBAPI-VER")) && headers.contains(QStringLiteral("X-WEBAPI-TMS")),
                 qPrintable(it.key()));
    }
    // Each code the operation may answer has a response of its status.
    const QVariantList codes = operation.value(QStringLiteral("x-error-codes")).toList();
    QVERIFY(codes.contains(QString::number(Response::RE_Unauthorized)));
    for (const QVariant &code : codes) {
        const QString status = QString::number(Response::httpStatusForError(code.toUInt()));
        QVERIFY2(responses.contains(status), qPrintable(QStringLiteral("%1 needs a %2 response").arg(code.toString(), status)));
    }
}

void TestOpenApi::onlyRoutesDocumented()
{
    QStringList routed;
    for (const Route &route : routes())
        routed.append(route.method + QLatin1Char(' ') + route.path);
    const QVariantMap paths = m_doc.value(QStringLiteral("paths")).toMap();
    for (auto path = paths.begin(); path != paths.end(); ++path) {
        for (const QString &method : path.value().toMap().keys())
            QVERIFY2(routed.contains(method + QLatin1Char(' ') + path.key()), qPrintable(method + ' ' + path.key()));
    }
}

void TestOpenApi::errorCodeDocumented_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("code");
    const QMetaEnum errors = QMetaEnum::fromType<Response::ResponseErrors>();
    for (int i = 0; i < errors.keyCount(); ++i)
        QTest::newRow(errors.key(i)) << QString::fromLatin1(errors.key(i)) << errors.value(i);
}

void TestOpenApi::errorCodeDocumented()
{
    QFETCH(QString, name);
    QFETCH(int, code);
    QVariantMap entry;
    for (const QVariant &row : m_doc.value(QStringLiteral("x-error-codes")).toList()) {
        if (row.toMap().value(QStringLiteral("code")).toInt() == code)
            entry = row.toMap();
    }
    QVERIFY2(!entry.isEmpty(), "missing from x-error-codes");
    QCOMPARE(entry.value(QStringLiteral("name")).toString(), name);
    QCOMPARE(entry.value(QStringLiteral("status")).toInt(), int(Response::httpStatusForError(uint(code))));
    QCOMPARE(entry.value(QStringLiteral("message")).toString(), Response::errorMessage(uint(code)));
    QVERIFY(at(QStringLiteral("#/components/schemas/Error/properties/code/enum")).toList().contains(QString::number(code)));
}

QSet<QString> TestOpenApi::headerNames() const
{
    QSet<QString> names;
    const QVariantMap schemes = at(QStringLiteral("#/components/securitySchemes")).toMap();
    for (const QVariant &scheme : schemes) {
        const QVariantMap map = scheme.toMap();
        if (map.value(QStringLiteral("in")) == QLatin1String("header"))
            names.insert(map.value(QStringLiteral("name")).toString());
        if (map.value(QStringLiteral("scheme")) == QLatin1String("bearer"))
            names.insert(QStringLiteral("Authorization"));
    }
    for (const QVariant &parameter : at(QStringLiteral("#/components/parameters")).toMap()) {
        if (parameter.toMap().value(QStringLiteral("in")) == QLatin1String("header"))
            names.insert(parameter.toMap().value(QStringLiteral("name")).toString());
    }
    for (const QVariant &path : m_doc.value(QStringLiteral("paths")).toMap()) {
        for (const QVariant &operation : path.toMap()) {
            for (const QVariant &response : operation.toMap().value(QStringLiteral("responses")).toMap()) {
                for (const QString &header : resolved(response).value(QStringLiteral("headers")).toMap().keys())
                    names.insert(header);
            }
        }
    }
    return names;
}

void TestOpenApi::headersDocumented_data()
{
    QTest::addColumn<QString>("header");
    for (const char *header : {"Pragma", "Authorization", "X-ZMT-TID", "X-ZMT-AID", "X-WEBAPI-DEVEL-ENV",
                               "X-WEBAPI-VER", "X-WEBAPI-TMS", "X-WEBAPI-COUNT"})
        QTest::newRow(header) << QString::fromLatin1(header);
}

void TestOpenApi::headersDocumented()
{
    QFETCH(QString, header);
    QVERIFY(headerNames().contains(header));
}

void TestOpenApi::referencesResolve()
{
    QVariantList pending{m_doc};
    int references = 0;
    while (!pending.isEmpty()) {
        const QVariant node = pending.takeLast();
        if (node.type() == QVariant::List) {
            pending.append(node.toList());
        } else if (node.type() == QVariant::Map) {
            const QVariantMap map = node.toMap();
            if (map.contains(QStringLiteral("$ref"))) {
                ++references;
                const QString target = map.value(QStringLiteral("$ref")).toString();
                QVERIFY2(at(target).isValid(), qPrintable(target));
            }
            pending.append(map.values());
        }
    }
    QVERIFY(references > 0);
}

QTEST_GUILESS_MAIN(TestOpenApi)
#include "tst_openapi.moc"
