// The host's decisions without a process or a socket: who answers a request, what an answer
// said, what its metrics count and its reference page lists.
#include "accesslog.h"
#include "metrics.h"
#include "requestdecision.h"

#include "apireference.h"
#include "support/httpreply.h"
#include "support/routelists.h"

#include <QtTest>

static const char *const kRefused = "HTTP/1.1 401 Unauthorized\r\n\r\n{\"code\": 100007, \"message\": \"Invalid API token 'x'\"}";
static const char *const kUnknown = "HTTP/1.1 503 Service Unavailable\r\n\r\n{\"code\": 100503, \"message\": \"Database '' not initialized!\"}";

class TestHostDecision : public QObject
{
    Q_OBJECT

private slots:
    void decision_data()
    {
        QTest::addColumn<QString>("request");   // method, path, then header lines; "|" between them
        QTest::addColumn<QByteArray>("answer"); // what it did: an answer's status line and Retry-After, or a token
        QTest::addColumn<QString>("guesses");   // before it, from 10.0.0.1: k a refused key, c an unknown customer
        QTest::addColumn<int>("later");         // seconds after those guesses
        QTest::addColumn<QString>("client");
        QTest::addColumn<int>("end");           // how its reading ended, a ReadEnd
        const auto add = [](const char *name, const QString &request, const char *answer, const char *guesses = "", int later = 0,
                            const char *client = "127.0.0.9", ReadEnd end = ReadEnd::Whole) {
            QTest::newRow(name) << request << QByteArray(answer) << guesses << later << client << int(end);
        };
        const QString a = "GET /webapi/info|Pragma: token-a|X-Forwarded-For: 10.0.0.1";
        add("health", "GET /healthz", "probe");
        add("health posted", "POST /healthz", "HTTP/1.1 404 Not Found");
        add("metrics", "GET /metrics", "metrics");
        add("docs", "GET /docs", "HTTP/1.1 200 OK");
        add("look-alike", "GET /webapix/info", "HTTP/1.1 404 Not Found");
        add("the prefix alone", "GET /webapi", "plugin");
        add("token", "GET /webapi/info|Pragma: token-a", "plugin token-a");
        add("cut at colon", "GET /webapi/x|Pragma: token-a:' OR 1", "plugin token-a");
        add("no token word", "GET /webapi/x|Pragma: no-cache'", "plugin");
        for (const QByteArray &token : testData("injection/tokens.txt").trimmed().split('\n'))
            add(token.constData(), "GET /webapi/x|Pragma: " + token, "HTTP/1.1 400 Bad Request");
        add("under the limit", a, "plugin token-a", "kk", 0, "10.0.0.1");
        add("at the limit", a, "HTTP/1.1 429 Too Many Requests 60", "kkk", 0, "10.0.0.1");
        add("limit of another customer", "GET /webapi/x|Pragma: token-b|X-Forwarded-For: 10.0.0.1", "plugin token-b", "kkk", 0, "10.0.0.1");
        add("window nearly over", a, "HTTP/1.1 429 Too Many Requests 1", "kkk", 59, "10.0.0.1");
        add("window over", a, "plugin token-a", "kkk", 60, "10.0.0.1");
        add("guessed customers", "GET /webapi/x|Pragma: token-b|X-Forwarded-For: 10.0.0.1", "HTTP/1.1 429 Too Many Requests 60", "ccc",
            0, "10.0.0.1");
        // Left of the client are its own words; trusted hops right of it are skipped.
        add("behind proxies", "GET /webapi/x|Pragma: token-a|X-Forwarded-For: 192.0.2.7, 10.0.0.1, 127.0.0.2",
            "HTTP/1.1 429 Too Many Requests 60", "kkk", 0, "10.0.0.1");
        add("the proxy itself", "GET /webapi/x|Pragma: token-a", "plugin token-a", "kkk");
        add("from no proxy", a, "plugin token-a", "kkk", 0, "127.0.0.3");
        add("body too large", "GET /webapi/info", "HTTP/1.1 413 Payload Too Large", "", 0, "127.0.0.9", ReadEnd::BodyTooLarge);
        add("header too large", "GET /webapi/info", "HTTP/1.1 431 Request Header Fields Too Large", "", 0, "127.0.0.9", ReadEnd::HeaderTooLarge);
        add("not HTTP", "GET /webapi/info", "HTTP/1.1 400 Bad Request", "", 0, "127.0.0.9", ReadEnd::Malformed);
        add("timed out", "GET /webapi/info", "log", "", 0, "127.0.0.9", ReadEnd::TimedOut);
        add("gone", "GET /webapi/info", "close", "", 0, "127.0.0.9", ReadEnd::Gone);
    }

    void decision()
    {
        QFETCH(QString, request);
        QFETCH(QString, guesses);
        QFETCH(int, later);
        QFETCH(QString, client);
        QFETCH(int, end);
        const HostRoutes routes{{"/webapi"}, true, TrustedProxies({"127.0.0.2", "127.0.0.9"})};
        AuthThrottle throttle(3);
        const auto start = AuthThrottle::Clock::now();
        for (const QChar guess : guesses)
            throttle.recordResponse("10.0.0.1", "token-a", readPluginAnswer(guess == 'k' ? kRefused : kUnknown), start);
        QStringList lines = request.split('|');
        const QString first = lines.takeFirst();
        const QString forwarded = lines.filter("X-Forwarded-For").value(0).section(':', 1).trimmed();
        const QString peer = client.startsWith("127.") ? client : "127.0.0.9";  // a trusted proxy before the others
        const RequestFacts facts{ReadEnd(end), true, first.section(' ', 0, 0).toStdString(), first.section(' ', 1).toStdString(),
                                 lines, true, peer.toStdString(), forwarded.toStdString()};
        const Decision decision = decideRequest(facts, routes, throttle, start + std::chrono::seconds(later));
        const char *const kinds[] = {"", "probe", "metrics", "plugin ", "log", "close"};
        const QByteArray head = QByteArray::fromStdString(decision.answer.substr(0, decision.answer.find('\r')));
        const QByteArray did = decision.kind == Decision::Answer
            ? head + ' ' + HttpReply::parse(QByteArray::fromStdString(decision.answer)).header("Retry-After")
            : kinds[decision.kind] + decision.token.toUtf8();
        QTEST(did.trimmed(), "answer");
        QCOMPARE(decision.keepAlive, end == int(ReadEnd::Whole));
        QCOMPARE(decision.client, client.toStdString());
    }

    void pluginAnswer_data()
    {
        QTest::addColumn<QByteArray>("raw");
        QTest::addColumn<QString>("reading");  // status, code, then key: a refused key, customer: an unknown one, database: its error
        const auto raw = [](const char *status, const char *body) { return "HTTP/1.1 " + QByteArray(status) + "\r\n\r\n" + body; };
        QTest::newRow("success with a code") << raw("200 OK", "{\"code\": 100007}") << "200 0";
        QTest::newRow("refused key") << QByteArray(kRefused) << "401 100007 key";
        QTest::newRow("refused scheme") << raw("401 X", "{\"code\": 100006, \"message\": \"Bad authorization 'Basic'\"}") << "401 100006 key";
        QTest::newRow("not licensed") << raw("401 X", "{\"code\": 100006, \"message\": \"REST interface not licensed\"}") << "401 100006";
        QTest::newRow("unknown customer") << QByteArray(kUnknown) << "503 100503 customer";
        QTest::newRow("customer database down") << raw("503 X", "{\"code\": 100503, \"message\": \"Database 'c' not initialized!\"}")
                                                << "503 100503 database";
        QTest::newRow("failed statement") << raw("500 X", "{\"code\": 100501}") << "500 100501 database";
        QTest::newRow("plain text error") << raw("404 Not Found", "not found\n") << "404 0";
        QTest::newRow("nothing") << QByteArray() << "0 0";
    }

    void pluginAnswer()
    {
        QFETCH(QByteArray, raw);
        const PluginAnswer answer = readPluginAnswer(raw);
        // Two readings at once would run together and match no row.
        const QString reading = QString("%1 %2 %3%4%5").arg(answer.status).arg(answer.code).arg(
            answer.refusedKey() ? "key" : "", answer.unknownCustomer() ? "customer" : "", answer.databaseError() ? "database" : "");
        QTEST(reading.trimmed(), "reading");
    }

    void referencePage()
    {
        // GET /docs lists every routed endpoint under a heading; the README's curl lines with theirs.
        const QString page = QString::fromStdString(ApiReference::page());
        QStringList listed;
        const QRegularExpression heading("<span class=\"method\">(\\w+)</span> <span class=\"path\">/webapi(/[^<]+)</span>");
        for (auto match = heading.globalMatch(page); match.hasNext();) {
            const QRegularExpressionMatch m = match.next();
            listed << m.captured(1).toLower() + ' ' + m.captured(2);
        }
        listed.sort();
        QCOMPARE(listed, RouteLists().routes());
        const int entrance = page.indexOf("<span class=\"path\">/webapi/entrance</span>");
        const int example = page.indexOf("<pre class=\"curl\">", entrance);
        QVERIFY(entrance > 0 && example > entrance && example < page.indexOf("<section", entrance));
    }

    void requestIdAndMetrics()
    {
        // Echoed as it came only when it is safe to: 1 to 128 of letters, digits and "-_.:".
        for (const QString &id : QStringList{"6f1c2a7e-0b4d-4c8e:9a55_3f0d", QString(128, 'r'), QString(129, 'r'), "id \"x\" <b>;", ""})
            QCOMPARE(AccessLog::clientRequestId(id.toStdString()).size(), std::size_t(id.size() <= 128 && !id.contains(' ') ? id.size() : 0));
        // Counted by route, never by the path's own words; refusals and failures by what the answer said.
        Metrics metrics(ApiReference::routes());
        metrics.record("GET", "/webapi/person/7f3a", readPluginAnswer(kRefused), 0.02);
        metrics.record("BREW", "/webapi/person/7f3a/x", readPluginAnswer(kUnknown), 0.02);
        metrics.record("GET", "/healthz", readPluginAnswer("HTTP/1.1 429 Too Many Requests"), 0.02);
        const QByteArray text = QByteArray::fromStdString(metrics.text({}));
        for (const char *line : {"webapi_requests_total{route=\"/webapi/person/{id}\",method=\"GET\",status=\"401\"} 1",
                                 "webapi_requests_total{route=\"other\",method=\"other\",status=\"503\"} 1",
                                 "webapi_request_duration_seconds_bucket{route=\"/healthz\",le=\"0.01\"} 0",
                                 "webapi_request_duration_seconds_bucket{route=\"/healthz\",le=\"0.025\"} 1",
                                 "webapi_failed_authentications_total 1", "webapi_database_errors_total 0",
                                 "webapi_throttled_requests_total 1"})
            QVERIFY2(text.contains(QByteArray(line) + '\n'), line);
        QVERIFY(!text.contains("7f3a"));
    }
};

QTEST_GUILESS_MAIN(TestHostDecision)
#include "tst_hostdecision.moc"
