-- A customer database as version 1 left it, with an entrance stored under it: the starting
-- point of the migration test.
ALTER TABLE inters_data DROP KEY uq_inters_data_event, DROP COLUMN sentDate, ADD UNIQUE KEY uq_inters_data_ref (tid, refId);
ALTER TABLE admins MODIFY apiToken VARCHAR(128) NULL;
DROP TABLE schema_version;
INSERT INTO term (tid, vorixID) VALUES (1, 1);
INSERT INTO inters (iid, name, shortcut) VALUES (1, 'In', 'I');
INSERT INTO people (uid, pid, name) VALUES (1, 1, 'A');
INSERT INTO inters_data (tid, refId, uid, iid, date) VALUES (1, 5, 1, 1, 1714543200);
