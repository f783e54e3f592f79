#ifndef RESPONSE_H
#define RESPONSE_H

#include "request/requestheader.h"

#include <QMap>
#include <QObject>
#include <QVariant>

// The result of one request: body or error, status and extra headers. Handlers write to
// it; renderResponse turns it into the complete HTTP response text once, at the end.
class Response : public QObject
{
    Q_OBJECT

public:
    enum ResponseErrors {
        RE_Unauthorized = 100001,
        RE_BadMethod = 100002,
        RE_BadVID = 100003,
        RE_JsonParseError = 100004,
        RE_BadJsonEncoding = 100005,
        RE_BadAuthorization = 100006,
        RE_BadApiToken = 100007,
        RE_InvalidApiEndpoint = 100101,
        RE_InvalidID = 100102,
        RE_InvalidAdmin = 100103,
        RE_InvalidDate = 100104,
        RE_InvalidMonth = 100105,
        RE_NoTerminal = 100201,
        RE_NoPerson = 100202,
        RE_NoEntrance = 100203,
        RE_NoAdmin = 100204,
        RE_NoAdminPermission = 100205,
        RE_RequiredUID = 100301,
        RE_RequiredPID = 100302,
        RE_RequiredVorixID = 100303,
        RE_RequiredName = 100304,
        RE_RequiredField = 100305,
        RE_ForeignKeyError = 100306,
        RE_NoData4Update = 100307,
        RE_SQLError = 100501,
        RE_LicenseNotFound = 100502,
        RE_BadDatabase = 100503,
        RE_UnimplementedApiContext = 100504,
    };
    Q_ENUM(ResponseErrors)

    Response(const RequestHeader &header, QObject *parent = nullptr);

    void setStatus(quint16 status);
    quint16 status() const { return m_status; }
    int errorCode() const;
    void setData(const QVariant &value);
    QVariant data() const { return m_data; }
    void setHeader(const QString &key, const QVariant &value);
    void setDebugValue(const QString &key, const QVariant &value);
    // Development mode is known only once the customer's licence rows are read.
    void setDevelopment(bool on) { m_header.develEnv = on; }

    static QString errorMessage(uint code);
    static quint16 httpStatusForError(uint code);

    void setErrorBody(const QString &message, uint code, quint16 status);
    void setError(uint code);
    void setError(uint code, const QString &arg);
    void setError(uint code, const QString &arg1, const QString &arg2);
    QByteArray renderError(uint code);
    // A failed statement, reported the same way on both sides: RE_SQLError with the driver's
    // text. The terminal side logs critical: `logLine`, the text, "\nSQL:" and the statement;
    // the admin side logs a warning with `logLine` as a printf format of the text.
    enum class SqlLog { Critical, Warning };
    void setSqlError(const QString &error, const QString &sql, const char *logLine, SqlLog level = SqlLog::Critical);
    QByteArray renderError(uint code, const QString &arg);

    static QVariant errorList();

    QByteArray renderResponse(bool withHead);

protected:
    // The body as JSON bytes. Virtual only so that tests can hand the validity check bytes
    // that QJsonDocument never writes.
    virtual QByteArray toJson() const;

private:
    QVariant m_data = QVariantMap();  // or JsonText: a body written from rows as they came
    quint16 m_status = 200;
    QMap<QString, QVariant> m_headers;
    int m_errorCode = 0;
    QString m_contentType = QStringLiteral("application/json");
    RequestHeader m_header;
    QVariantMap m_debugData;  // written, never read: nothing of it reaches the client
};

#endif
