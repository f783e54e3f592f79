#include "support/adminfixture.h"

#include <QDateTime>

namespace AdminFixture {

bool setUp(ApiFixture &fx, QString *error)
{
    if (!fx.setUp()) {
        if (error)
            *error = fx.error();
        return false;
    }
    if (!TestServer::loadSqlFile(fx.customer().name(), QStringLiteral(WEBAPI_TEST_DATA "/admin/fixture.sql"), error))
        return false;
    const QDate today = QDate::currentDate();
    const qint64 todaySecs = today.startOfDay().toSecsSinceEpoch();
    const qint64 yesterdaySecs = today.addDays(-1).startOfDay().toSecsSinceEpoch();
    const uint thisMonth = today.toString(QStringLiteral("yyyyMM")).toUInt();
    const uint lastMonth = today.addMonths(-1).toString(QStringLiteral("yyyyMM")).toUInt();
    const QStringList statements = {
        QStringLiteral("INSERT INTO atten (uid, date, work, diff, shift) VALUES (1, %1, 28800, 3600, 6), "
                       "(1, %2, 14400, -3600, 6)")
            .arg(todaySecs)
            .arg(yesterdaySecs),
        QStringLiteral("INSERT INTO atten_month (month, uid, work, diff) VALUES (%1, 1, 360000, 0), (%2, 1, 180000, 0)")
            .arg(thisMonth)
            .arg(lastMonth),
        QStringLiteral("INSERT INTO atten_data (uid, iid, `from`, duration, del) VALUES (1, 2, %1, 3600, 0), "
                       "(1, 4, %2, 7200, 0)")
            .arg(todaySecs + 36000)
            .arg(yesterdaySecs),
    };
    for (const QString &sql : statements) {
        if (!fx.customer().exec(sql)) {
            if (error)
                *error = fx.customer().error();
            return false;
        }
    }
    return true;
}

HttpReply get(ApiFixture &fx, const QString &path, const QString &apiToken)
{
    return fx.request(QStringLiteral("GET"), QStringLiteral("/webapi/") + path, fx.adminHeaders(apiToken));
}

QString isoDay(const QDate &date)
{
    return date.toString(QStringLiteral("yyyy-MM-dd"));
}

QString isoMonth(const QDate &date)
{
    return date.toString(QStringLiteral("yyyy-MM"));
}

} // namespace AdminFixture
