-- A store as the second version of the file had it.
CREATE TABLE meta(name TEXT PRIMARY KEY, value TEXT NOT NULL) WITHOUT ROWID;
CREATE TABLE conversation(
    id INTEGER PRIMARY KEY, kind INTEGER NOT NULL, name TEXT NOT NULL,
    last_at INTEGER NOT NULL DEFAULT 0, last_id INTEGER NOT NULL DEFAULT 0,
    unread INTEGER NOT NULL DEFAULT 0, draft TEXT NOT NULL DEFAULT '', known_until INTEGER NOT NULL DEFAULT 0,
    UNIQUE(kind, name));
CREATE TABLE message(
    id INTEGER PRIMARY KEY, conversation INTEGER NOT NULL, sent_at INTEGER NOT NULL, direction INTEGER NOT NULL,
    state INTEGER NOT NULL, payload TEXT NOT NULL, key INTEGER, service_id INTEGER, error TEXT);
ALTER TABLE message ADD COLUMN attempts INTEGER NOT NULL DEFAULT 0;
CREATE TABLE cleared(
    kind INTEGER NOT NULL, name TEXT NOT NULL, until INTEGER NOT NULL, PRIMARY KEY(kind, name)) WITHOUT ROWID;
CREATE INDEX message_time ON message(conversation, sent_at);
CREATE INDEX message_key ON message(key) WHERE key IS NOT NULL;
CREATE INDEX message_service_id ON message(service_id) WHERE service_id IS NOT NULL;
CREATE INDEX message_waiting ON message(conversation, sent_at) WHERE direction = 1 AND state <> 3;
CREATE TABLE gap(
    conversation INTEGER NOT NULL, after INTEGER NOT NULL, before INTEGER NOT NULL,
    PRIMARY KEY(conversation, after)) WITHOUT ROWID;
CREATE TABLE attachment(
    message INTEGER NOT NULL, number INTEGER NOT NULL, name TEXT NOT NULL, PRIMARY KEY(message, number)) WITHOUT ROWID;
CREATE VIRTUAL TABLE words USING fts5(
    body, place, content='', columnsize=0, tokenize='unicode61 remove_diacritics 2');
PRAGMA application_id = 1986361453;
PRAGMA user_version = 2;
INSERT INTO meta VALUES('service','https://im.example'),('user','alice');
INSERT INTO conversation VALUES(1,0,'bob',1700000000001,495160655873,1,'a draft',1500);
INSERT INTO message VALUES(495160655872,1,1700000000000,0,3,'{"content":{"media":0,"body":"hello"},"ts":1700000000000,"from":{"id":"bob","type":0}}',NULL,NULL,NULL,0);
INSERT INTO message VALUES(495160655873,1,1700000000001,1,0,'{"content":{"media":0,"body":"unsent"},"ts":1700000000001,"key":"k"}',NULL,NULL,NULL,0);
INSERT INTO gap VALUES(1,1000,2000);
INSERT INTO words(rowid, body, place) VALUES(495160655872,'hello','c1'),(495160655873,'unsent','c1');
