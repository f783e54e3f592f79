-- Rows every terminal-context case reads. Dates are local midnights in Europe/Prague:
-- 1704063600 = 2024-01-01, 1893452400 = 2030-01-01, 1714543200 = 2024-05-01 08:00.
UPDATE vars SET value = '0-9999' WHERE name = 'webapi.devices';
INSERT INTO term (tid, vorixID, type, status, name) VALUES (1, 101, 'API', 1, 'T1'), (2, 102, 'API', 1, 'T2'),
    (3, 103, 'API', 1, 'T3'), (4, 104, 'API', 0, 'Off');
INSERT INTO inters (iid, name, shortcut, weight, color) VALUES (3, 'Lunch', 'L', 1, '#f00'),
    (1, 'Arrival', 'A', 2, NULL), (2, 'Doctor', 'D', 1, '#0f0');
INSERT INTO mastergroups (mgId, name) VALUES (1, 'Plant');
INSERT INTO regions (rid, name) VALUES (1, 'North');
INSERT INTO groups (gid, name, shifts, parent, rid) VALUES (1, 'Day', 'D1', 1, 1), (2, 'Night', NULL, NULL, NULL);
INSERT INTO people (uid, pid, gid, status, name, surname, title, title2, card, saldo, present, begin, end) VALUES
    (1, 1001, 1, 1, 'Jana', 'Nováková', 'Ing.', 'Ph.D.', '0001', -30, 1, 1704063600, NULL),
    (2, 1002, NULL, 1, 'Petr', NULL, NULL, NULL, NULL, 0, 0, 1704063600, 1893452400),
    (3, 1003, NULL, 1, 'Lost', NULL, NULL, NULL, NULL, 0, 0, 1704063600, NULL),
    (4, 1004, NULL, 0, 'Gone', 'Away', NULL, NULL, NULL, 0, 1, 1704063600, NULL);
INSERT INTO inters_data (id, tid, refId, uid, iid, type, date, created) VALUES (50, 1, 1, 1, 1, 1, 1714543200, 1714543200);
-- Uid 3's presence entrance is gone.
UPDATE people SET presentID = 50 WHERE uid = 1;
UPDATE people SET presentID = 9999 WHERE uid = 3;
-- Jana is known at terminal 3; new rows get fixed numbers.
INSERT INTO people_term (uid, tid) VALUES (1, 3);
ALTER TABLE term AUTO_INCREMENT = 9000;
ALTER TABLE people AUTO_INCREMENT = 500;
ALTER TABLE inters_data AUTO_INCREMENT = 700;
