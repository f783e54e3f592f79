-- Rows of the PUT and DELETE tests, loaded afresh before each case.
SET FOREIGN_KEY_CHECKS = 0;
DELETE FROM term_sync;
DELETE FROM people_term;
DELETE FROM inters_data;
DELETE FROM inters;
DELETE FROM people;
DELETE FROM term;
SET FOREIGN_KEY_CHECKS = 1;

INSERT INTO term (tid, vorixID, type, status, online, name, mac, ip, ver, flags, syn) VALUES
    (1, 201, 'API', 1, 1700000000, 'Door', 'aa:bb', '10.0.0.1', '1.0', 0, 6),
    (2, 202, 'API', 1, 1700000000, 'Gate', NULL, NULL, NULL, 0, 0),
    (3, 203, 'API', 0, 1700000000, 'Retired', NULL, NULL, NULL, 0, 0);

-- Jana is on terminals 1 and 2 (and on the retired 3), Petr on terminal 1 only.
INSERT INTO people (uid, pid, status, name, surname, title, admin, begin) VALUES
    (1, 2001, 1, 'Jana', 'Nováková', 'Ing.', 0, 1672527600),
    (2, 2002, 1, 'Petr', 'Svoboda', NULL, 1, 1672527600);

INSERT INTO people_term (uid, tid, grp) VALUES (1, 1, 0), (1, 2, 0), (1, 3, 0), (2, 1, 0);

INSERT INTO inters (iid, name, shortcut) VALUES (1, 'Work', 'W');

-- 1 belongs to terminal 1, 2 to terminal 2, 3 is already withdrawn.
INSERT INTO inters_data (id, tid, refId, uid, iid, date, created, del) VALUES
    (1, 1, 7, 1, 1, 1700000000, 1700000000, 0),
    (2, 2, 3, 1, 1, 1700000000, 1700000000, 0),
    (3, 1, 8, 2, 1, 1700000000, 1700000000, 1);

INSERT INTO term_sync (tid, type, ref, ref_col, ref_id, created, flags) VALUES
    (1, 'U', 'people_term', 'uid', 1, 1700000100, 2),
    (1, 'U', 'people_term', 'uid', 2, 1700000200, 2),
    (1, 'U', 'people', 'uid', 1, 1700000300, 4);
