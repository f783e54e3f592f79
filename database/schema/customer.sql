-- One customer's database. Loaded with the mariadb client into an empty database.
-- Column names must stay unambiguous across the joins the product runs (no like-named
-- columns between joined tables), so a column is added here only where it is read.

CREATE TABLE `mastergroups` (
    `mgId` INT UNSIGNED NOT NULL AUTO_INCREMENT,
    `name` VARCHAR(100) NOT NULL,
    PRIMARY KEY (`mgId`)
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_unicode_ci;

CREATE TABLE `regions` (
    `rid`  INT UNSIGNED NOT NULL AUTO_INCREMENT,
    `name` VARCHAR(100) NOT NULL,
    PRIMARY KEY (`rid`)
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_unicode_ci;

CREATE TABLE `groups` (
    `gid`    INT UNSIGNED NOT NULL AUTO_INCREMENT,
    `name`   VARCHAR(100) NOT NULL,
    `shifts` VARCHAR(255) NULL,
    `parent` INT UNSIGNED NULL,
    `rid`    INT UNSIGNED NULL,
    PRIMARY KEY (`gid`),
    CONSTRAINT `fk_groups_parent` FOREIGN KEY (`parent`) REFERENCES `mastergroups` (`mgId`),
    CONSTRAINT `fk_groups_region` FOREIGN KEY (`rid`) REFERENCES `regions` (`rid`)
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_unicode_ci;

CREATE TABLE `holidays` (
    `hid`       INT UNSIGNED NOT NULL AUTO_INCREMENT,
    `name`      VARCHAR(100) NOT NULL,
    `localName` VARCHAR(100) NULL,
    PRIMARY KEY (`hid`)
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_unicode_ci;

-- gid is the one foreign key of people: a refused gid is how an unknown group is reported.
CREATE TABLE `people` (
    `uid`       INT UNSIGNED NOT NULL AUTO_INCREMENT,
    `pid`       INT UNSIGNED NOT NULL,
    `pamId`     VARCHAR(32)  NULL,
    `did`       INT UNSIGNED NULL,
    `gid`       INT UNSIGNED NULL,
    `status`    TINYINT      NOT NULL DEFAULT 1,
    `name`      VARCHAR(100) NULL,
    `surname`   VARCHAR(100) NULL,
    `title`     VARCHAR(50)  NULL,
    `title2`    VARCHAR(50)  NULL,
    `card`      VARCHAR(64)  NULL,
    `admin`     TINYINT(1)   NOT NULL DEFAULT 0,
    `access`    TINYINT(1)   NOT NULL DEFAULT 1,
    `saldo`     INT          NOT NULL DEFAULT 0,
    `present`   TINYINT(1)   NOT NULL DEFAULT 0,
    `presentID` INT UNSIGNED NULL,
    `begin`     INT UNSIGNED NOT NULL DEFAULT 0,
    `end`       INT UNSIGNED NULL,
    PRIMARY KEY (`uid`),
    UNIQUE KEY `uq_people_pid` (`pid`),
    CONSTRAINT `fk_people_group` FOREIGN KEY (`gid`) REFERENCES `groups` (`gid`)
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_unicode_ci;

CREATE TABLE `term` (
    `tid`     INT UNSIGNED NOT NULL AUTO_INCREMENT,
    `vorixID` INT UNSIGNED NOT NULL DEFAULT 0,
    `type`    VARCHAR(16)  NOT NULL DEFAULT 'API',
    `status`  TINYINT      NOT NULL DEFAULT 1,
    `online`  INT UNSIGNED NULL,
    `name`    VARCHAR(100) NULL,
    `mac`     VARCHAR(64)  NULL,
    `ip`      VARCHAR(64)  NULL,
    `ver`     VARCHAR(64)  NULL,
    `flags`   INT UNSIGNED NOT NULL DEFAULT 0,
    `syn`     INT UNSIGNED NOT NULL DEFAULT 0,
    PRIMARY KEY (`tid`),
    KEY `ix_term_vorix` (`vorixID`)
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_unicode_ci;

CREATE TABLE `people_term` (
    `uid` INT UNSIGNED NOT NULL,
    `tid` INT UNSIGNED NOT NULL,
    `grp` INT UNSIGNED NOT NULL DEFAULT 0,
    PRIMARY KEY (`uid`, `tid`),
    KEY `ix_people_term_tid` (`tid`),
    CONSTRAINT `fk_people_term_person` FOREIGN KEY (`uid`) REFERENCES `people` (`uid`),
    CONSTRAINT `fk_people_term_term` FOREIGN KEY (`tid`) REFERENCES `term` (`tid`)
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_unicode_ci;

-- Marks of changes a terminal has yet to fetch; mostly written by other software.
CREATE TABLE `term_sync` (
    `id`      INT UNSIGNED NOT NULL AUTO_INCREMENT,
    `tid`     INT UNSIGNED NOT NULL,
    `type`    CHAR(1)      NOT NULL DEFAULT 'U',
    `ref`     VARCHAR(32)  NOT NULL,
    `ref_col` VARCHAR(64)  NOT NULL,
    `ref_id`  INT UNSIGNED NOT NULL DEFAULT 0,
    `ref_id2` INT UNSIGNED NULL,
    `created` INT UNSIGNED NOT NULL,
    `flags`   INT UNSIGNED NOT NULL DEFAULT 0,
    PRIMARY KEY (`id`),
    KEY `ix_term_sync_tid` (`tid`, `flags`, `created`),
    CONSTRAINT `fk_term_sync_term` FOREIGN KEY (`tid`) REFERENCES `term` (`tid`)
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_unicode_ci;

CREATE TABLE `inters` (
    `iid`      INT UNSIGNED NOT NULL,
    `name`     VARCHAR(100) NOT NULL,
    `shortcut` VARCHAR(16)  NOT NULL,
    `weight`   INT          NOT NULL DEFAULT 0,
    `color`    VARCHAR(16)  NULL,
    `start`    INT          NULL,
    `stop`     INT          NULL,
    `present`  TINYINT(1)   NOT NULL DEFAULT 0,
    `work`     TINYINT(1)   NOT NULL DEFAULT 0,
    PRIMARY KEY (`iid`)
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_unicode_ci;

CREATE TABLE `inters_term` (
    `tid` INT UNSIGNED NOT NULL,
    `iid` INT UNSIGNED NOT NULL,
    PRIMARY KEY (`tid`, `iid`),
    CONSTRAINT `fk_inters_term_term` FOREIGN KEY (`tid`) REFERENCES `term` (`tid`),
    CONSTRAINT `fk_inters_term_inter` FOREIGN KEY (`iid`) REFERENCES `inters` (`iid`)
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_unicode_ci;

-- Entrances. One event is one row: the key holds the terminal's number of the event with
-- the event's values and `sentDate` (the date as the terminal sent it, 0 when it sent none),
-- so a copy posted twice at the same moment is stored once, while a different event under a
-- reused refId gets a row of its own. refId stays NULL when a terminal sends none, so such
-- entrances never collide.
CREATE TABLE `inters_data` (
    `id`          INT UNSIGNED NOT NULL AUTO_INCREMENT,
    `tid`         INT UNSIGNED NOT NULL,
    `refId`       INT UNSIGNED NULL DEFAULT NULL,
    `uid`         INT UNSIGNED NOT NULL,
    `iid`         INT UNSIGNED NOT NULL,
    `type`        INT          NOT NULL DEFAULT 0,
    `date`        INT UNSIGNED NOT NULL DEFAULT 0,
    `sentDate`    INT UNSIGNED NOT NULL DEFAULT 0,
    `created`     INT UNSIGNED NOT NULL DEFAULT 0,
    `description` VARCHAR(255) NULL,
    `del`         TINYINT(1)   NOT NULL DEFAULT 0,
    `photo`       MEDIUMBLOB   NULL,
    PRIMARY KEY (`id`),
    UNIQUE KEY `uq_inters_data_event` (`tid`, `refId`, `uid`, `iid`, `type`, `sentDate`),
    KEY `ix_inters_data_uid` (`uid`, `date`),
    CONSTRAINT `fk_inters_data_term` FOREIGN KEY (`tid`) REFERENCES `term` (`tid`),
    CONSTRAINT `fk_inters_data_person` FOREIGN KEY (`uid`) REFERENCES `people` (`uid`),
    CONSTRAINT `fk_inters_data_inter` FOREIGN KEY (`iid`) REFERENCES `inters` (`iid`)
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_unicode_ci;

-- An API token compares with case (binary collation).
CREATE TABLE `admins` (
    `aid`      SMALLINT UNSIGNED NOT NULL AUTO_INCREMENT,
    `login`    VARCHAR(64)  NOT NULL,
    `apiToken` VARCHAR(128) CHARACTER SET utf8mb4 COLLATE utf8mb4_bin NULL,
    `status`   SMALLINT UNSIGNED NOT NULL DEFAULT 1,
    `perms`    INT UNSIGNED NOT NULL DEFAULT 0,
    `del`      TINYINT(1)   NOT NULL DEFAULT 0,
    PRIMARY KEY (`aid`),
    UNIQUE KEY `uq_admins_token` (`apiToken`)
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_unicode_ci;

CREATE TABLE `admins_people` (
    `aid` SMALLINT UNSIGNED NOT NULL,
    `uid` INT UNSIGNED NOT NULL,
    PRIMARY KEY (`aid`, `uid`),
    KEY `ix_admins_people_uid` (`uid`),
    CONSTRAINT `fk_admins_people_admin` FOREIGN KEY (`aid`) REFERENCES `admins` (`aid`),
    CONSTRAINT `fk_admins_people_person` FOREIGN KEY (`uid`) REFERENCES `people` (`uid`)
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_unicode_ci;

-- One row per person and day; `date` is the local midnight of the day.
CREATE TABLE `atten` (
    `uid`         INT UNSIGNED NOT NULL,
    `date`        INT UNSIGNED NOT NULL,
    `dow`         TINYINT UNSIGNED NULL,
    `entry`       INT NULL,
    `leave`       INT NULL,
    `total`       INT NULL,
    `work`        INT NULL,
    `night`       INT NULL,
    `lunch`       INT NULL,
    `diff`        INT NULL,
    `saldo`       INT NULL,
    `wta`         INT NULL,
    `saldo_p`     INT NULL,
    `saldo_c`     INT NULL,
    `bonus`       INT NULL,
    `fond`        INT NULL,
    `shift`       TINYINT UNSIGNED NOT NULL DEFAULT 0,
    `vouchers`    INT NULL,
    `ok`          TINYINT NULL,
    `lock`        TINYINT NULL,
    `checked`     TINYINT(1) NOT NULL DEFAULT 0,
    `man`         TINYINT(1) NOT NULL DEFAULT 0,
    `freeDay`     TINYINT(1) NOT NULL DEFAULT 0,
    `manOvertime` TINYINT(1) NOT NULL DEFAULT 0,
    `inters`      VARCHAR(255) NULL,
    `note`        VARCHAR(255) NULL,
    `overtimeNote` VARCHAR(255) NULL,
    `hid`         INT UNSIGNED NULL,
    `readBegin`   INT NULL,
    `readEnd`     INT NULL,
    `wore`        INT NULL,
    `flags`       INT UNSIGNED NOT NULL DEFAULT 0,
    PRIMARY KEY (`uid`, `date`),
    KEY `ix_atten_date` (`date`),
    CONSTRAINT `fk_atten_person` FOREIGN KEY (`uid`) REFERENCES `people` (`uid`),
    CONSTRAINT `fk_atten_holiday` FOREIGN KEY (`hid`) REFERENCES `holidays` (`hid`)
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_unicode_ci;

CREATE TABLE `atten_month` (
    `month`        INT UNSIGNED NOT NULL,
    `uid`          INT UNSIGNED NOT NULL,
    `gid`          INT UNSIGNED NULL,
    `status`       TINYINT NULL,
    `locks`        INT NULL,
    `oks`          INT NULL,
    `checks`       INT NULL,
    `days`         INT NULL,
    `fond`         INT NULL,
    `work`         INT NULL,
    `night`        INT NULL,
    `break`        INT NULL,
    `bonus`        INT NULL,
    `diff`         INT NULL,
    `saldo`        INT NULL,
    `saldo_p`      INT NULL,
    `saldo_c`      INT NULL,
    `vouchers`     INT NULL,
    `editorID`     SMALLINT UNSIGNED NULL,
    `edited`       INT UNSIGNED NULL,
    `workDays`     INT NULL,
    `holidays`     INT NULL,
    `wfond`        INT NULL,
    `ref_fond`     INT NULL,
    `ref_wFond`    INT NULL,
    `ref_workDays` INT NULL,
    `ref_holidays` INT NULL,
    `curSaldo`     INT NULL,
    `planSaldo`    INT NULL,
    `totalSaldo`   INT NULL,
    `workDaysVal`  INT NULL,
    `day6sum`      INT NULL,
    `day7sum`      INT NULL,
    `holidayFond`  INT NULL,
    `holidaySum`   INT NULL,
    `wta`          INT NULL,
    `wtaPlus`      INT NULL,
    `wtaMinus`     INT NULL,
    `wtaTotal`     INT NULL,
    `readiness`    INT NULL,
    `readWorked`   INT NULL,
    `acv`          VARCHAR(32) NULL,
    PRIMARY KEY (`month`, `uid`),
    KEY `ix_atten_month_uid` (`uid`),
    CONSTRAINT `fk_atten_month_person` FOREIGN KEY (`uid`) REFERENCES `people` (`uid`),
    CONSTRAINT `fk_atten_month_group` FOREIGN KEY (`gid`) REFERENCES `groups` (`gid`),
    CONSTRAINT `fk_atten_month_editor` FOREIGN KEY (`editorID`) REFERENCES `admins` (`aid`)
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_unicode_ci;

CREATE TABLE `atten_data` (
    `id`       INT UNSIGNED NOT NULL AUTO_INCREMENT,
    `uid`      INT UNSIGNED NOT NULL,
    `iid`      INT UNSIGNED NOT NULL,
    `from`     INT UNSIGNED NOT NULL,
    `duration` INT NOT NULL DEFAULT 0,
    `del`      TINYINT(1) NOT NULL DEFAULT 0,
    PRIMARY KEY (`id`),
    KEY `ix_atten_data_from` (`from`, `uid`),
    CONSTRAINT `fk_atten_data_person` FOREIGN KEY (`uid`) REFERENCES `people` (`uid`)
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_unicode_ci;

CREATE TABLE `vars` (
    `name`  VARCHAR(191) NOT NULL,
    `value` TEXT NULL,
    PRIMARY KEY (`name`)
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_unicode_ci;

CREATE TABLE `zones` (
    `zid`       INT UNSIGNED NOT NULL AUTO_INCREMENT,
    `name`      VARCHAR(100) NOT NULL,
    `from_time` INT UNSIGNED NOT NULL DEFAULT 0,
    `to_time`   INT UNSIGNED NOT NULL DEFAULT 0,
    `days`      INT UNSIGNED NOT NULL DEFAULT 0,
    `status`    INT UNSIGNED NOT NULL DEFAULT 1,
    PRIMARY KEY (`zid`)
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_unicode_ci;

CREATE TABLE `pzt` (
    `zid` INT UNSIGNED NOT NULL,
    `uid` INT UNSIGNED NOT NULL,
    `tid` INT UNSIGNED NOT NULL,
    PRIMARY KEY (`zid`, `uid`, `tid`),
    CONSTRAINT `fk_pzt_zone` FOREIGN KEY (`zid`) REFERENCES `zones` (`zid`),
    CONSTRAINT `fk_pzt_person` FOREIGN KEY (`uid`) REFERENCES `people` (`uid`),
    CONSTRAINT `fk_pzt_term` FOREIGN KEY (`tid`) REFERENCES `term` (`tid`)
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_unicode_ci;

-- Which of the scripts database/schema/migrate-*.sql a database has had; a new one is at
-- the latest version.
CREATE TABLE `schema_version` (
    `version` INT UNSIGNED NOT NULL,
    `applied` TIMESTAMP NOT NULL DEFAULT CURRENT_TIMESTAMP,
    PRIMARY KEY (`version`)
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_unicode_ci;
INSERT INTO `schema_version` (`version`) VALUES (2);

DELIMITER //

-- Midnight that begins the day of `ts`, in the connection's time zone (which must be the
-- plug-in's).
CREATE FUNCTION `midnightFromTs`(ts INT UNSIGNED) RETURNS INT UNSIGNED
    DETERMINISTIC READS SQL DATA
BEGIN
    RETURN UNIX_TIMESTAMP(DATE(FROM_UNIXTIME(ts)));
END //

-- A person's balance at `ts`: the stored balance plus the day differences booked in atten
-- up to `ts`.
CREATE FUNCTION `getSaldo`(p_uid INT UNSIGNED, ts INT UNSIGNED) RETURNS INT
    READS SQL DATA
BEGIN
    DECLARE base INT DEFAULT 0;
    DECLARE booked INT DEFAULT 0;
    SELECT IFNULL(p.saldo, 0) INTO base FROM people p WHERE p.uid = p_uid;
    SELECT IFNULL(SUM(a.diff), 0) INTO booked FROM atten a WHERE a.uid = p_uid AND a.date <= ts;
    RETURN base + booked;
END //

DELIMITER ;
