#include "settings/connectionsettings.h"

QString ConnectionSettings::connectOptions(const QString &extra) const
{
    const QString timeouts = QStringLiteral("MYSQL_OPT_CONNECT_TIMEOUT=%1;MYSQL_OPT_READ_TIMEOUT=%2;MYSQL_OPT_WRITE_TIMEOUT=%3")
                                 .arg(connectTimeout)
                                 .arg(readTimeout)
                                 .arg(writeTimeout);
    return extra.isEmpty() ? timeouts : extra + QLatin1Char(';') + timeouts;
}

QString ConnectionSettings::sessionStatement() const
{
    // The driver settles on 3-byte utf8 with the MariaDB client library; names beyond the BMP
    // need the full set. lock_wait_timeout bounds table locks (LOCK TABLES, DDL), the InnoDB one
    // row locks.
    return QStringLiteral("SET NAMES utf8mb4, SESSION lock_wait_timeout = %1, SESSION innodb_lock_wait_timeout = %1, "
                          "SESSION max_statement_time = %2")
        .arg(lockWait)
        .arg(statementTime);
}
