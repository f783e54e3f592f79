// Reading the request: header lines, header values, the context and the path words. No
// database: a worker without a manager stops at the database step, after all of these ran.
#include "response/response.h"
#include "support/httpreply.h"
#include "support/logcapture.h"
#include "worker/webapiworker.h"

#include <QtTest>

class TestParseHeader : public QObject
{
    Q_OBJECT

private slots:
    void parseHeader_data();
    void parseHeader();
    void debugLevelIsCopied();
    void headerValue_data();
    void headerValue();
    void selectContext_data();
    void selectContext();
    void urlPathWords_data();
    void urlPathWords();
    void noManagerLogsOnlyWithoutToken_data();
    void noManagerLogsOnlyWithoutToken();
};

void TestParseHeader::parseHeader_data()
{
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<QString>("token");
    QTest::addColumn<QString>("contentType");
    QTest::addColumn<QString>("authorization");
    QTest::addColumn<QString>("tid");
    QTest::addColumn<QString>("aid");
    QTest::addColumn<bool>("valid");
    QTest::addColumn<bool>("develEnv");

    QTest::newRow("no lines") << QStringList() << "" << "" << "" << "" << "" << false << false;
    QTest::newRow("all headers")
        << QStringList{"Pragma: token-a1", "Content-Type: application/json", "Authorization: Bearer k",
                       "X-ZMT-TID: MTIuMzQ1", "X-ZMT-AID: adm-1", "X-WEBAPI-DEVEL-ENV: zmt-devel"}
        << "token-a1" << "application/json" << "Bearer k" << "MTIuMzQ1" << "adm-1" << true << true;
    QTest::newRow("pragma name ignores case") << QStringList{"pragma: my-token"} << "my-token" << "" << ""
                                              << "" << "" << false << false;
    QTest::newRow("token word respects case") << QStringList{"Pragma: TOKEN"} << "" << "" << "" << "" << ""
                                              << false << false;
    QTest::newRow("pragma without token") << QStringList{"Pragma: no-cache"} << "" << "" << "" << "" << ""
                                          << false << false;
    // A Pragma line without the word runs on through the other rows.
    QTest::newRow("pragma line reaching row 3") << QStringList{"Pragma: Authorization"} << "" << ""
                                                << "Authorization" << "" << "" << true << false;
    QTest::newRow("token keeps the whole value") << QStringList{"Pragma: my token x"} << "my token x" << ""
                                                 << "" << "" << "" << false << false;
    QTest::newRow("unanchored match") << QStringList{"X-Note: Authorization"} << "" << "" << "Authorization"
                                      << "" << "" << true << false;
    QTest::newRow("first row wins") << QStringList{"Content-Type: Authorization"} << "" << "Authorization"
                                    << "" << "" << "" << false << false;
    QTest::newRow("last line wins") << QStringList{"Authorization: a", "Authorization: b"} << "" << "" << "b"
                                    << "" << "" << true << false;
    QTest::newRow("colon cuts the value") << QStringList{"Authorization: abc:def"} << "" << "" << "abc" << ""
                                          << "" << true << false;
    QTest::newRow("header names ignore case")
        << QStringList{"CONTENT-TYPE: text/plain", "authorization: Bearer x", "x-zmt-tid: t", "X-Zmt-Aid: a"}
        << "" << "text/plain" << "Bearer x" << "t" << "a" << true << false;
    QTest::newRow("white space collapsed") << QStringList{"  Authorization:\t Bearer   k1 \r\n"} << "" << ""
                                           << "Bearer k1" << "" << "" << true << false;
    QTest::newRow("authorization without value") << QStringList{"Authorization:"} << "" << "" << "" << "" << ""
                                                 << true << false;
    QTest::newRow("devel token in another case") << QStringList{"X-WEBAPI-DEVEL-ENV: ZMT-DEVEL"} << "" << ""
                                                 << "" << "" << "" << false << false;
    QTest::newRow("devel name in another case") << QStringList{"x-webapi-devel-env: zmt-devel"} << "" << ""
                                                << "" << "" << "" << false << true;
    QTest::newRow("later devel line turns it off")
        << QStringList{"X-WEBAPI-DEVEL-ENV: zmt-devel", "X-WEBAPI-DEVEL-ENV: no"} << "" << "" << "" << "" << ""
        << false << false;
    QTest::newRow("unknown lines ignored") << QStringList{"Host: example", "Accept: */*", ""} << "" << "" << ""
                                           << "" << "" << false << false;
}

void TestParseHeader::parseHeader()
{
    QFETCH(QStringList, lines);
    QFETCH(QString, token);
    QFETCH(QString, contentType);
    QFETCH(QString, authorization);
    QFETCH(QString, tid);
    QFETCH(QString, aid);
    QFETCH(bool, valid);
    QFETCH(bool, develEnv);

    WebApiWorker worker(QStringLiteral("2.4.1"));
    const RequestHeader header = worker.parseHeader(lines);
    QCOMPARE(header.token, token);
    QCOMPARE(header.contentType, contentType);
    QCOMPARE(header.authorization, authorization);
    QCOMPARE(header.tid, tid);
    QCOMPARE(header.aid, aid);
    QCOMPARE(header.valid, valid);
    QCOMPARE(header.develEnv, develEnv);
    QCOMPARE(header.prettyJson, true);
    QCOMPARE(int(header.debugLevel), 0);
}

void TestParseHeader::debugLevelIsCopied()
{
    WebApiWorker worker(QStringLiteral("2.4.1"));
    worker.setDebugLevel(2);
    LogCapture log;
    const RequestHeader header = worker.parseHeader({QStringLiteral("Authorization: x"), QStringLiteral("Host: h")});
    QCOMPARE(int(header.debugLevel), 2);
    QCOMPARE(log.lines(QtDebugMsg), QStringList{QStringLiteral("WebApiWorker::parseHeader( 2 )")});
}

void TestParseHeader::headerValue_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("value");
    QTest::newRow("plain") << "Authorization: Bearer k" << "Bearer k";
    QTest::newRow("colon cut") << "Authorization: abc:def" << "abc";
    QTest::newRow("no colon") << "Authorization" << "";
    QTest::newRow("nothing behind") << "Authorization:" << "";
    QTest::newRow("empty parts dropped") << "Authorization:: x" << "x";
    QTest::newRow("leading colon") << ":a:b" << "b";
    QTest::newRow("blank value") << "Authorization: :" << "";
}

void TestParseHeader::headerValue()
{
    QFETCH(QString, line);
    QFETCH(QString, value);
    QCOMPARE(WebApiWorker::headerValue(line), value);
}

void TestParseHeader::selectContext_data()
{
    QTest::addColumn<QString>("method");
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("withAid");
    QTest::addColumn<int>("context");

    const int terminal = WebApiWorker::TerminalContext;
    const int admin = WebApiWorker::AdminContext;
    QTest::newRow("get people") << "GET" << "/webapi/people" << false << terminal;
    QTest::newRow("get people, aid") << "GET" << "/webapi/people" << true << admin;
    QTest::newRow("get inters, aid") << "GET" << "/webapi/inters" << true << terminal;
    QTest::newRow("get info, aid") << "GET" << "/webapi/info" << true << terminal;
    QTest::newRow("get groups, aid") << "GET" << "/webapi/groups" << true << terminal;
    QTest::newRow("get response-errors, aid") << "GET" << "/webapi/response-errors" << true << terminal;
    QTest::newRow("post inters, aid") << "POST" << "/webapi/inters" << true << admin;
    QTest::newRow("post anything, aid") << "POST" << "/webapi/attendance/daily/0" << true << admin;
    QTest::newRow("lower-case get, aid") << "get" << "/webapi/info" << true << admin;
    QTest::newRow("Info in capitals, aid") << "GET" << "/webapi/Info" << true << admin;
    QTest::newRow("root, aid") << "GET" << "/webapi" << true << admin;
    QTest::newRow("root") << "GET" << "/webapi" << false << terminal;
}

void TestParseHeader::selectContext()
{
    QFETCH(QString, method);
    QFETCH(QString, path);
    QFETCH(bool, withAid);
    QFETCH(int, context);

    WebApiWorker worker(QStringLiteral("2.4.1"));
    QStringList headers{QStringLiteral("Pragma: token-x"), QStringLiteral("Authorization: Bearer k")};
    if (withAid)
        headers.append(QStringLiteral("X-ZMT-AID: admin-token"));
    const HttpReply reply = HttpReply::parse(worker.buildResponse(method, QUrl(QStringLiteral("http://h") + path),
                                                                  headers, QByteArray()));
    // Without a manager the request ends at the database step, after the context was chosen.
    QCOMPARE(reply.errorCode(), int(Response::RE_BadDatabase));
    QCOMPARE(int(worker.contextType()), context);
}

void TestParseHeader::urlPathWords_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QStringList>("words");
    QTest::newRow("two words") << "http://h/webapi/person/abc" << QStringList{"person", "abc"};
    QTest::newRow("prefix alone") << "http://h/webapi" << QStringList();
    QTest::newRow("prefix and slash") << "http://h/webapi/" << QStringList();
    QTest::newRow("no path") << "http://h" << QStringList();
    QTest::newRow("repeated slashes") << "http://h//webapi///people//" << QStringList{"people"};
    QTest::newRow("any first word") << "http://h/other/x/y" << QStringList{"x", "y"};
    QTest::newRow("query ignored") << "http://h/webapi/people?x=1/2" << QStringList{"people"};
    QTest::newRow("decoded blank") << "http://h/webapi/a%20b" << QStringList{"a b"};
    QTest::newRow("encoded slash splits") << "http://h/webapi/a%2Fb" << QStringList{"a", "b"};
    QTest::newRow("case kept") << "http://h/WebApi/Info" << QStringList{"Info"};
}

void TestParseHeader::urlPathWords()
{
    QFETCH(QString, url);
    QFETCH(QStringList, words);
    QCOMPARE(WebApiWorker::urlPathWords(QUrl(url)), words);
}

void TestParseHeader::noManagerLogsOnlyWithoutToken_data()
{
    QTest::addColumn<QStringList>("headers");
    QTest::addColumn<QStringList>("warnings");
    QTest::newRow("no token") << QStringList{"Authorization: Bearer k"}
                              << QStringList{"WebApiWorker: Database manager NOT initialized!"};
    QTest::newRow("token") << QStringList{"Pragma: token-x", "Authorization: Bearer k"} << QStringList();
}

void TestParseHeader::noManagerLogsOnlyWithoutToken()
{
    QFETCH(QStringList, headers);
    QFETCH(QStringList, warnings);
    WebApiWorker worker(QStringLiteral("2.4.1"));
    LogCapture log;
    const HttpReply reply = HttpReply::parse(
        worker.buildResponse(QStringLiteral("GET"), QUrl(QStringLiteral("http://h/webapi/info")), headers, {}));
    QCOMPARE(reply.status, 503);
    QCOMPARE(reply.message(), QStringLiteral("Database '' not initialized!"));
    QCOMPARE(log.lines(QtWarningMsg), warnings);
}

QTEST_GUILESS_MAIN(TestParseHeader)
#include "tst_parseheader.moc"
