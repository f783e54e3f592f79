-- The InfoDB: one row per customer. Tokens select a customer's database; passwords are
-- stored Base64-encoded.
CREATE TABLE IF NOT EXISTS `schemas` (
    `sid`         INT UNSIGNED NOT NULL AUTO_INCREMENT,
    `token`       VARCHAR(64)  NOT NULL,
    `name`        VARCHAR(64)  NOT NULL,
    `user`        VARCHAR(80)  NOT NULL,
    `pass`        VARBINARY(255) NULL,
    `status`      TINYINT      NOT NULL DEFAULT 1,
    `recalc`      INT UNSIGNED NULL,
    `maintenance` INT UNSIGNED NULL,
    PRIMARY KEY (`sid`),
    UNIQUE KEY `uq_schemas_token` (`token`),
    KEY `ix_schemas_name` (`name`)
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_unicode_ci;
