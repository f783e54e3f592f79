#ifndef ADMINFIXTURE_H
#define ADMINFIXTURE_H

#include "support/apifixture.h"

#include <QDate>

// The admin-context data of tests/data/admin/fixture.sql in the fixture's customer
// database, plus rows for person 1 today, yesterday, this month and last month, so that
// relative filters have something to find.
namespace AdminFixture {

// ApiFixture::setUp, then the data; on false `error` says why.
bool setUp(ApiFixture &fx, QString *error);

// Path of an admin GET for an administrator, and its reply.
HttpReply get(ApiFixture &fx, const QString &path, const QString &apiToken = QStringLiteral("tok-boss"));

QString isoDay(const QDate &date);    // yyyy-MM-dd
QString isoMonth(const QDate &date);  // yyyy-MM

} // namespace AdminFixture

#endif
