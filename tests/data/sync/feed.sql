-- Rows of the synchronisation tests, loaded afresh before each case. Marks carry fixed
-- past times; rows of a full copy are stamped with the server's present time.
SET FOREIGN_KEY_CHECKS = 0;
DELETE FROM term_sync;
DELETE FROM pzt;
DELETE FROM zones;
DELETE FROM people_term;
DELETE FROM inters_term;
DELETE FROM inters_data;
DELETE FROM inters;
DELETE FROM people;
DELETE FROM term;
DELETE FROM vars WHERE name IN ('colorGroups', 'gone', 'cleared');
SET FOREIGN_KEY_CHECKS = 1;

-- 1 takes part in inters and people, nothing pending; 2 has every section pending and
-- two bits (16, 128) with no mark; 3 is switched off; 4 has a 'D' under a full copy.
INSERT INTO term (tid, vorixID, type, status, online, name, flags, syn) VALUES
    (1, 101, 'API', 1, NULL, 'Quiet', 3, 0),
    (2, 102, 'API', 1, NULL, 'Busy', 0, 479),
    (3, 103, 'API', 0, NULL, 'Off', 0, 20),
    (4, 104, 'API', 1, NULL, 'Forced', 322, 2);

-- 3's name holds a zero byte: terminals get the text before it. 4 has left.
INSERT INTO people (uid, pid, status, name, surname, title, title2, card, admin, access, saldo, present, begin, end) VALUES
    (1, 1001, 1, 'Jana', 'Nováková', 'Ing.', NULL, 'C1', 1, 1, 3600, 1, 1672527600, NULL),
    (2, 1002, 1, 'Petr', 'Svoboda', NULL, 'Ph.D.', 'C2', 0, 1, -1800, 0, 1672527600, 2000000000),
    (3, 1003, 1, CONCAT('Eva', CHAR(0), 'junk'), 'Dvořáková', NULL, NULL, NULL, 0, 0, 0, 0, 1672527600, NULL),
    (4, 1004, 1, 'Old', 'Leaver', NULL, NULL, NULL, 0, 1, 0, 0, 1600000000, 1650000000);

-- Person 2 has no link to terminal 2.
INSERT INTO people_term (uid, tid, grp) VALUES
    (1, 1, 5), (2, 1, 0), (4, 1, 0),
    (1, 2, 7),
    (1, 4, 3), (3, 4, 2);

INSERT INTO inters (iid, name, shortcut, weight, color, start, stop) VALUES
    (1, 'Work', 'W', 10, '#00ff00', NULL, NULL),
    (2, 'Lunch', 'L', 20, '#ffaa00', 660, 780),
    (3, 'Doctor', 'Dr', 30, '#0000ff', NULL, NULL);

INSERT INTO inters_term (tid, iid) VALUES (1, 1), (1, 2);

INSERT INTO inters_data (tid, refId, uid, iid, date, created) VALUES
    (1, 5, 1, 1, 1700000000, 1700000000),
    (1, 9, 1, 1, 1700003600, 1700003600),
    (2, 40, 2, 1, 1700000000, 1700000000);

INSERT INTO zones (zid, name, from_time, to_time, days, status) VALUES
    (1, 'Office hours', 25200, 61200, 31, 1),
    (2, 'Night', 79200, 21600, 127, 0);

INSERT INTO pzt (zid, uid, tid) VALUES (1, 3, 4), (2, 3, 4);

INSERT INTO vars (name, value) VALUES ('colorGroups', '7:#ff0000,5:#00ff00'), ('cleared', NULL);

-- The flags 3 mark names two sections at once: the feed never delivers it.
INSERT INTO term_sync (tid, type, ref, ref_col, ref_id, ref_id2, created, flags) VALUES
    (2, 'U', 'people_term', 'uid', 1, NULL, 1700000100, 2),
    (2, 'U', 'inters', 'iid', 3, NULL, 1700000110, 1),
    (2, 'U', 'people', 'uid', 2, NULL, 1700000120, 4),
    (2, 'D', 'people', 'uid', 3, NULL, 1700000130, 4),
    (2, 'U', 'people', 'uid', 2, NULL, 1700000140, 8),
    (2, 'U', 'people_term', 'uid', 2, NULL, 1700000150, 2),
    (2, 'U', 'zones', 'zid', 1, NULL, 1700000160, 64),
    (2, 'U', 'pzt', 'zid', 1, 2, 1700000170, 64),
    (2, 'D', 'pzt', 'zid', 2, 2, 1700000180, 64),
    (2, 'U', 'people_term', 'uid', 1, NULL, 1700000190, 256),
    (2, 'D', 'people_term', 'uid', 1, NULL, 1700000200, 2),
    (2, 'U', 'vars', 'colorGroups', 0, NULL, 1700000210, 256),
    (2, 'U', 'vars', 'gone', 0, NULL, 1700000220, 256),
    (2, 'U', 'vars', 'cleared', 0, NULL, 1700000225, 256),
    (2, 'U', 'people_term', 'uid', 4, NULL, 1700000230, 3),
    (3, 'U', 'people', 'uid', 2, NULL, 1700000400, 4),
    (4, 'D', 'people_term', 'uid', 1, NULL, 1700000300, 2);
