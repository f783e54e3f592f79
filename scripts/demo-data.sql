-- Demo data for one customer database, loaded on top of what scripts/add-customer made
-- (schema, licence rows, the terminal key and administrator 1). Two terminals, fifty people
-- in four groups, reason codes, a second administrator and a second client key, and the
-- computed attendance of the last two months, dated relative to the day of loading.
-- The key row holds the SHA-256 digest of the demo key that scripts/run prints, scoped to
-- admin requests.

SET NAMES utf8mb4;

INSERT INTO vars (name, value) VALUES
    ('webapi.key.admintool', CONCAT('admin:', SHA2('demo-admin-tool-key', 256)));

INSERT INTO regions (rid, name) VALUES (1, 'Praha'), (2, 'Ostrava');
INSERT INTO mastergroups (mgId, name) VALUES (1, 'Výroba'), (2, 'Správa');
INSERT INTO `groups` (gid, name, shifts, parent, rid) VALUES
    (1, 'Lisovna – ranní směna', '1', 1, 1),
    (2, 'Montáž', '1,2', 1, 2),
    (3, 'Účtárna', '1', 2, 1),
    (4, 'Sklad a expedice', '1,2', 2, 2);
INSERT INTO holidays (hid, name, localName) VALUES
    (1, 'New Year''s Day', 'Nový rok'), (2, 'Labour Day', 'Svátek práce'), (3, 'Christmas Day', '');

-- Reason codes: present and work flags decide what the reports count.
INSERT INTO inters (iid, name, shortcut, weight, color, start, stop, present, work) VALUES
    (1, 'Příchod', 'P', 10, '#2e7d32', 1, 0, 1, 1),
    (2, 'Odchod', 'O', 20, '#c62828', 0, 1, 0, 0),
    (3, 'Lékař', 'L', 30, '#6a1b9a', 0, 1, 0, 1),
    (4, 'Služební cesta', 'SC', 40, '#1565c0', 0, 1, 0, 1),
    (5, 'Oběd', 'OB', 50, '#ef6c00', 0, 1, 1, 0),
    (6, 'Dovolená', 'D', 60, '#00838f', 0, 1, 0, 0);

INSERT INTO term (tid, vorixID, type, status, online, name, mac, ip, ver, flags, syn) VALUES
    (1, 1001, 'API', 1, UNIX_TIMESTAMP(), 'Vrátnice – hlavní vchod', '00:1a:2b:3c:4d:01', '10.0.0.21', '3.2.0', 0, 0),
    (2, 1002, 'API', 1, UNIX_TIMESTAMP(), 'Sklad – rampa č. 2', '00:1a:2b:3c:4d:02', '10.0.0.22', '3.2.0', 0, 0);
INSERT INTO inters_term (tid, iid) SELECT t.tid, i.iid FROM term t CROSS JOIN inters i;

-- Fifty people from ten first names and ten surnames; uid and pid follow the sequence.
INSERT INTO people (uid, pid, pamId, did, gid, status, name, surname, title, title2, card, admin, access,
                    saldo, present, begin, `end`)
SELECT s.seq, 1000 + s.seq, CONCAT('PAM-', LPAD(s.seq, 4, '0')), 1 + s.seq % 3, 1 + s.seq % 4, 1,
       ELT(1 + s.seq % 10, 'Jiří', 'Šárka', 'Tomáš', 'Zuzana', 'Lukáš', 'Kateřina', 'Ondřej', 'Markéta', 'Radek', 'Božena'),
       ELT(1 + (s.seq DIV 10 + 3 * s.seq) % 10, 'Dvořák', 'Černá', 'Procházka', 'Kučerová', 'Veselý', 'Horáková',
           'Němec', 'Pokorná', 'Růžička', 'Šťastná'),
       IF(s.seq % 9 = 0, 'Ing.', NULL), IF(s.seq % 17 = 0, 'Ph.D.', NULL), LPAD(HEX(700000 + s.seq * 37), 10, '0'),
       s.seq = 1, 1, (CAST(s.seq % 7 AS SIGNED) - 3) * 1800, 0,
       UNIX_TIMESTAMP(MAKEDATE(YEAR(CURDATE()) - 1, 1)), IF(s.seq = 50, UNIX_TIMESTAMP(CURDATE() + INTERVAL 30 DAY), NULL)
FROM seq_1_to_50 s;
INSERT INTO people_term (uid, tid, grp) SELECT p.uid, t.tid, p.gid FROM people p CROSS JOIN term t;

-- Two administrators: 1 (made by scripts/add-customer) sees everybody, 2 only the
-- production groups.
INSERT INTO admins (aid, login, apiToken, status, perms, del) VALUES
    (2, 'mistr.vyroby', 'demo-foreman-api-token', 1, 2, 0);
INSERT INTO admins_people (aid, uid) SELECT 1, uid FROM people;
INSERT INTO admins_people (aid, uid) SELECT 2, uid FROM people WHERE gid IN (1, 2);

-- One row per person and day for the last 61 days: work days with arrival around seven,
-- weekends as free days, some days of leave.
INSERT INTO atten (uid, date, dow, entry, `leave`, total, work, night, lunch, diff, saldo, wta, saldo_p, saldo_c,
                   bonus, fond, shift, vouchers, ok, `lock`, checked, man, freeDay, manOvertime, inters, note,
                   overtimeNote, hid, readBegin, readEnd, wore, flags)
SELECT p.uid, UNIX_TIMESTAMP(d.day), WEEKDAY(d.day) + 1,
       IF(d.free, NULL, 25200 + (p.uid % 4) * 900),
       IF(d.free, NULL, 25200 + (p.uid % 4) * 900 + 30600 + (p.uid + d.n) % 3 * 900),
       IF(d.free, 0, 30600 + (p.uid + d.n) % 3 * 900),
       IF(d.free, 0, 28800 + (p.uid + d.n) % 3 * 900),
       0, IF(d.free, 0, 1800),
       IF(d.free, 0, (p.uid + d.n) % 3 * 900),
       IF(d.free, 0, (p.uid + d.n) % 3 * 900),
       0, 0, 0, 0, IF(d.free, 0, 28800), IF(d.free, 0, 1), IF(d.free, 0, 1),
       1, d.day < DATE_FORMAT(CURDATE(), '%Y-%m-01'), d.day < CURDATE() - INTERVAL 7 DAY, 0, d.free, 0,
       IF(d.leave, 'D', NULL), IF(d.leave, 'Dovolená', NULL), NULL, NULL,
       IF(p.uid % 10 = 0, 64800, NULL), IF(p.uid % 10 = 0, 21600, NULL), 0, 0
FROM people p
CROSS JOIN (SELECT CURDATE() - INTERVAL s.seq DAY AS day, s.seq AS n,
                   WEEKDAY(CURDATE() - INTERVAL s.seq DAY) >= 5 AS free,
                   s.seq % 23 = 5 AS `leave`
            FROM seq_1_to_61 s) d;

-- The intervals behind each work day: work until lunch, lunch, work again.
INSERT INTO atten_data (uid, iid, `from`, duration, del)
SELECT a.uid, 1, a.date + a.entry, 14400, 0 FROM atten a WHERE a.freeDay = 0
UNION ALL
SELECT a.uid, 5, a.date + a.entry + 14400, a.lunch, 0 FROM atten a WHERE a.freeDay = 0
UNION ALL
SELECT a.uid, IF((a.uid + a.date DIV 86400) % 11 = 0, 3, 1), a.date + a.entry + 14400 + a.lunch,
       a.work - 14400, 0 FROM atten a WHERE a.freeDay = 0;

-- The month sums of the days above, for this month and the last.
INSERT INTO atten_month (month, uid, gid, status, locks, oks, checks, days, fond, work, night, `break`, bonus,
                         diff, saldo, saldo_p, saldo_c, vouchers, editorID, edited, workDays, holidays, wfond,
                         ref_fond, ref_wFond, ref_workDays, ref_holidays, curSaldo, planSaldo, totalSaldo,
                         workDaysVal, day6sum, day7sum, holidayFond, holidaySum, wta, wtaPlus, wtaMinus, wtaTotal,
                         readiness, readWorked, acv)
SELECT DATE_FORMAT(FROM_UNIXTIME(a.date), '%Y%m'), a.uid, p.gid,
       MAX(a.`lock`), SUM(a.`lock`), SUM(a.ok), SUM(a.checked), COUNT(*), SUM(a.fond), SUM(a.work), 0, SUM(a.lunch),
       0, SUM(a.diff), SUM(a.saldo), 0, 0, SUM(a.vouchers), 1, UNIX_TIMESTAMP(), SUM(1 - a.freeDay), 0,
       SUM(a.fond), SUM(a.fond), 144000, SUM(1 - a.freeDay), 0, SUM(a.diff), 0, p.saldo + SUM(a.diff),
       SUM(a.work), 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 'demo-1'
FROM atten a JOIN people p USING (uid)
WHERE a.date >= UNIX_TIMESTAMP(DATE_FORMAT(CURDATE() - INTERVAL 1 MONTH, '%Y-%m-01'))
GROUP BY DATE_FORMAT(FROM_UNIXTIME(a.date), '%Y%m'), a.uid, p.gid;
