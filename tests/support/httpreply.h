#ifndef HTTPREPLY_H
#define HTTPREPLY_H

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonValue>
#include <QList>
#include <QPair>

// A complete HTTP response text as the plug-in returns it, split into its parts.
struct HttpReply
{
    bool valid = false;
    int status = 0;
    QList<QPair<QByteArray, QByteArray>> headers;  // in the order written
    QByteArray body;

    static HttpReply parse(const QByteArray &raw);
    QByteArray header(const QByteArray &name) const;  // name matched ignoring case
    QJsonDocument json() const { return QJsonDocument::fromJson(body); }
    // "code" and "message" of an error body: 0 and empty when there is none.
    int errorCode() const { return json()[QLatin1String("code")].toInt(); }
    QString message() const { return json()[QLatin1String("message")].toString(); }
};

// The response text with the X-WEBAPI-TMS value replaced by "<TMS>", for whole-response
// comparisons.
QByteArray maskTms(const QByteArray &raw);

// Contents of a file below tests/data.
QByteArray testData(const QString &relativePath);

// Compares `actual` with the expected file below tests/data. With WEBAPI_UPDATE_EXPECTED=1
// in the environment the file is (re)written instead, to be reviewed in the diff.
bool matchesExpected(const QByteArray &actual, const QString &relativePath);
#define COMPARE_EXPECTED(actual, file) \
    do { \
        const QByteArray actual_ = (actual); \
        if (!matchesExpected(actual_, file)) \
            QCOMPARE(actual_, testData(file)); \
    } while (false)

#endif
