-- People of two administrators with one person in common, their days, months and
-- attendance intervals around 2024-05-14, and administrators in every refusable state.
-- Times are local (the server's zone is the tests' zone).

INSERT INTO mastergroups (mgId, name) VALUES (1, 'Production');
INSERT INTO `groups` (gid, name, shifts, parent, rid) VALUES (1, 'Assembly', '1,2', 1, NULL), (2, 'Office', NULL, NULL, NULL);
INSERT INTO holidays (hid, name, localName) VALUES
    (1, 'Ascension Day', 'Nanebevstoupení'),
    (2, 'Labour Day', NULL),
    (3, 'Liberation Day', '');

-- 5 has left before May, 6 is inactive, 7 joined in the middle of May, 3 has no first name.
INSERT INTO people (uid, pid, pamId, did, gid, status, name, surname, begin, end) VALUES
    (1, 101, 'A-101', 10, 1, 1, 'Jana', 'Adamová', UNIX_TIMESTAMP('2020-01-01'), NULL),
    (2, 102, 'A-102', 20, 2, 1, 'Petr', 'Beneš', UNIX_TIMESTAMP('2020-01-01'), NULL),
    (3, 103, NULL, NULL, NULL, 1, NULL, 'Svoboda', UNIX_TIMESTAMP('2020-01-01'), NULL),
    (4, 104, 'A-104', 20, 2, 1, 'Karel', 'Zeman', UNIX_TIMESTAMP('2020-01-01'), NULL),
    (5, 105, 'A-105', 10, 1, 1, 'Ota', 'Černý', UNIX_TIMESTAMP('2020-01-01'), UNIX_TIMESTAMP('2024-03-31')),
    (6, 106, 'A-106', 10, 1, 0, 'Jan', 'Dušek', UNIX_TIMESTAMP('2020-01-01'), NULL),
    (7, 107, 'A-107', 10, 1, 1, 'Eva', 'Eliášová', UNIX_TIMESTAMP('2024-05-10'), NULL),
    (8, 108, 'A-108', 10, 1, 1, 'Tomáš', 'Fiala', UNIX_TIMESTAMP('2020-01-01'), NULL);

-- tok-noperm lacks the permission bit of value 2.
INSERT INTO admins (aid, login, apiToken, status, perms, del) VALUES
    (1, 'boss', 'tok-boss', 1, 2, 0),
    (2, 'second', 'tok-second', 2, 3, 0),
    (3, 'gone', 'tok-deleted', 1, 2, 1),
    (4, 'off', 'tok-disabled', 0, 2, 0),
    (5, 'viewer', 'tok-noperm', 1, 5, 0);

INSERT INTO admins_people (aid, uid) VALUES
    (1, 1), (1, 2), (1, 3), (1, 5), (1, 6), (1, 7), (1, 8),
    (2, 2), (2, 4);

-- One row per label of the shift table on 2024-05-14 (administrator 1), plus person 4 of
-- administrator 2 and a neighbouring day.
INSERT INTO atten (uid, date, dow, entry, `leave`, total, work, night, lunch, diff, saldo, wta, saldo_p, saldo_c,
                   bonus, fond, shift, vouchers, ok, `lock`, checked, man, freeDay, manOvertime, inters, note,
                   overtimeNote, hid, readBegin, readEnd, wore, flags) VALUES
    (1, UNIX_TIMESTAMP('2024-05-14'), 2, 25200, 55800, 30600, 27000, 0, 1800, 5400, 36000, 3600, 0, 0,
        900, 28800, 6, 1, 1, 0, 1, 0, 0, 1, '2', 'late bus', 'approved', NULL, 79200, 3600, 1800, 1),
    (2, UNIX_TIMESTAMP('2024-05-14'), 2, 21600, 50400, 28800, 27000, 3600, 1800, -5400, -9000, -1800, 1800, 900,
        0, 28800, 12, 1, 1, 1, 0, 1, 0, 0, NULL, NULL, NULL, 1, 3600, 7200, 0, 0),
    (3, UNIX_TIMESTAMP('2024-05-14'), 2, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL,
        NULL, NULL, 0, NULL, NULL, NULL, 0, 0, 0, 0, NULL, NULL, NULL, 2, NULL, NULL, NULL, 0),
    (5, UNIX_TIMESTAMP('2024-05-14'), 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
        0, 28800, 0, 0, 0, 0, 0, 0, 0, 0, NULL, NULL, NULL, NULL, NULL, NULL, NULL, 1),
    (6, UNIX_TIMESTAMP('2024-05-14'), 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
        0, 0, 255, 0, 0, 0, 0, 0, 0, 0, NULL, NULL, NULL, 3, NULL, NULL, NULL, 0),
    (7, UNIX_TIMESTAMP('2024-05-14'), 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
        0, 0, 1, 0, 0, 0, 0, 0, 0, 0, NULL, NULL, NULL, NULL, NULL, NULL, NULL, 1),
    (8, UNIX_TIMESTAMP('2024-05-14'), 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
        0, 0, 0, 0, 0, 0, 0, 0, 1, 0, NULL, NULL, NULL, NULL, NULL, NULL, NULL, 0),
    (4, UNIX_TIMESTAMP('2024-05-14'), 2, 28800, 59400, 30600, 30600, 0, 0, 1800, 1800, 0, 0, 0,
        0, 28800, 3, 1, 1, 0, 0, 0, 0, 0, NULL, NULL, NULL, NULL, NULL, NULL, NULL, 0),
    (1, UNIX_TIMESTAMP('2024-05-13'), 1, 25200, 54000, 28800, 28800, 0, 0, 1800, 30600, 0, 0, 0,
        0, 28800, 6, 1, 1, 0, 0, 0, 0, 0, NULL, NULL, NULL, NULL, NULL, NULL, NULL, 1),
    (8, UNIX_TIMESTAMP('2024-05-22'), 3, 21600, 50400, 28800, 28800, 0, 0, 900, 900, 0, 0, 0,
        0, 28800, 2, 1, 1, 0, 0, 0, 0, 0, NULL, NULL, NULL, NULL, NULL, NULL, NULL, 0);

INSERT INTO atten_month (month, uid, gid, status, locks, oks, checks, days, fond, work, night, `break`, bonus, diff,
                         saldo, saldo_p, saldo_c, vouchers, editorID, edited, workDays, holidays, wfond, ref_fond,
                         ref_wFond, ref_workDays, ref_holidays, curSaldo, planSaldo, totalSaldo, workDaysVal,
                         day6sum, day7sum, holidayFond, holidaySum, wta, wtaPlus, wtaMinus, wtaTotal, readiness,
                         readWorked, acv) VALUES
    (202405, 1, 1, 1, 10, 20, 18, 31, 633600, 540000, 7200, 21600, 3600, 7200,
        43200, 1800, 900, 20, 1, UNIX_TIMESTAMP('2024-06-01 08:30:00'), 22, 1, 144000, 662400,
        144000, 23, 1, 7200, -3600, 3600, 522000,
        10800, 7200, 28800, 0, 3600, 5400, 1800, 7200, 36000,
        9000, 'v3'),
    (202405, 2, 2, 0, 0, 20, 0, 31, 633600, 610200, 0, 21600, 0, -23400,
        -9000, 0, 0, 19, NULL, NULL, 22, 1, 144000, 662400,
        144000, 23, 1, -23400, 0, -23400, 610200,
        0, 0, 28800, 0, 0, 0, 0, 0, 0,
        0, NULL),
    (202405, 3, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL,
        NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL,
        NULL, NULL, NULL, NULL, NULL, NULL, NULL,
        NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL,
        NULL, NULL),
    (202405, 4, 2, 1, 0, 0, 0, 31, 633600, 604800, 0, 0, 0, 0,
        0, 0, 0, 0, NULL, NULL, 22, 1, 144000, 662400,
        144000, 23, 1, 0, 0, 0, 0,
        0, 0, 0, 0, 0, 0, 0, 0, 0,
        0, NULL),
    (202404, 1, 1, 2, 30, 30, 30, 30, 604800, 597600, 0, 0, 0, -7200,
        36000, 0, 0, 21, 2, UNIX_TIMESTAMP('2024-05-02 09:00:00'), 21, 1, 144000, 604800,
        144000, 21, 1, -7200, 0, 36000, 597600,
        0, 0, 0, 0, 0, 0, 0, 0, 0,
        0, 'v2');

INSERT INTO inters (iid, name, shortcut, weight, present, work) VALUES
    (1, 'Work', 'P', 1, 1, 1),
    (2, 'Doctor', 'L', 2, 0, 0),
    (3, 'Business trip', 'SC', 3, 1, 0),
    (4, 'Vacation', 'D', 4, 0, 0),
    (1000, 'Correction', 'K', 9, 1, 0);

-- Each person's intervals lie together in id, uid and time order alike, so whichever way
-- the server reads the table a person's rows arrive together.
INSERT INTO atten_data (id, uid, iid, `from`, duration, del) VALUES
    (1, 1, 1, UNIX_TIMESTAMP('2024-05-02 06:00:00'), 14400, 0),
    (2, 1, 4, UNIX_TIMESTAMP('2024-05-03 00:00:00'), 28800, 0),
    (3, 1, 1, UNIX_TIMESTAMP('2024-05-14 06:00:00'), 14400, 0),
    (4, 1, 2, UNIX_TIMESTAMP('2024-05-14 10:00:00'), 5400, 0),
    (5, 2, 3, UNIX_TIMESTAMP('2024-05-14 12:00:00'), 10800, 0),
    (6, 2, 2, UNIX_TIMESTAMP('2024-05-14 15:00:00'), 3600, 1),
    (7, 2, 1000, UNIX_TIMESTAMP('2024-05-14 16:00:00'), 3600, 0),
    (8, 2, 2, UNIX_TIMESTAMP('2024-05-20 08:00:00'), 1800, 0),
    (9, 2, 2, UNIX_TIMESTAMP('2024-05-20 09:00:00'), 1800, 0),
    (10, 3, 4, UNIX_TIMESTAMP('2024-05-21 00:00:00'), 28800, 0),
    (11, 8, 1, UNIX_TIMESTAMP('2024-05-22 06:00:00'), 28800, 0),
    (12, 8, 2, UNIX_TIMESTAMP('2024-05-31 23:00:00'), 1800, 0),
    (13, 4, 2, UNIX_TIMESTAMP('2024-05-14 17:00:00'), 3600, 0),
    (14, 1, 2, UNIX_TIMESTAMP('2024-04-30 10:00:00'), 3600, 0),
    (15, 8, 4, UNIX_TIMESTAMP('2024-06-01 00:00:00'), 3600, 0),
    (16, 1, 2, UNIX_TIMESTAMP('2024-02-29 10:00:00'), 3600, 0);

-- Person 1 today, yesterday, this month and last month, so that relative filters find rows.
INSERT INTO atten (uid, date, work, diff, shift) VALUES
    (1, UNIX_TIMESTAMP(CURDATE()), 28800, 3600, 6),
    (1, UNIX_TIMESTAMP(CURDATE() - INTERVAL 1 DAY), 14400, -3600, 6);
INSERT INTO atten_month (month, uid, work, diff) VALUES
    (DATE_FORMAT(CURDATE(), '%Y%m'), 1, 360000, 0),
    (DATE_FORMAT(CURDATE() - INTERVAL 1 MONTH, '%Y%m'), 1, 180000, 0);
INSERT INTO atten_data (uid, iid, `from`, duration, del) VALUES
    (1, 2, UNIX_TIMESTAMP(CURDATE()) + 36000, 3600, 0),
    (1, 4, UNIX_TIMESTAMP(CURDATE() - INTERVAL 1 DAY), 7200, 0);
