-- Version 2 of a customer database (a new one from customer.sql is at it already). Run as an
-- account with ALTER rights, once per customer database:
--     mariadb --host ... acme < database/schema/migrate-2.sql
-- Safe to run again.
--
-- Entrances: a reused refId no longer overwrites an earlier event. The key on (tid, refId)
-- becomes one on the whole event, with `sentDate` the date as the terminal sent it (0: none).
-- Existing rows keep sentDate 0; the (tid, refId) key they had makes them unique already.
ALTER TABLE `inters_data`
    ADD COLUMN IF NOT EXISTS `sentDate` INT UNSIGNED NOT NULL DEFAULT 0 AFTER `date`,
    ADD UNIQUE KEY IF NOT EXISTS `uq_inters_data_event` (`tid`, `refId`, `uid`, `iid`, `type`, `sentDate`);
ALTER TABLE `inters_data` DROP KEY IF EXISTS `uq_inters_data_ref`;

-- Administrators' API tokens compare with case.
ALTER TABLE `admins`
    MODIFY `apiToken` VARCHAR(128) CHARACTER SET utf8mb4 COLLATE utf8mb4_bin NULL;

CREATE TABLE IF NOT EXISTS `schema_version` (
    `version` INT UNSIGNED NOT NULL,
    `applied` TIMESTAMP NOT NULL DEFAULT CURRENT_TIMESTAMP,
    PRIMARY KEY (`version`)
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_unicode_ci;
INSERT IGNORE INTO `schema_version` (`version`) VALUES (2);
