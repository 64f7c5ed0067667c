CREATE TABLE sites (
  id {{id}},
  name TEXT NOT NULL UNIQUE,
  document TEXT NOT NULL,
  version BIGINT NOT NULL
);
CREATE TABLE configurations (
  site BIGINT NOT NULL REFERENCES sites (id) ON DELETE CASCADE,
  version BIGINT NOT NULL,
  sealed TEXT NOT NULL,
  made_at BIGINT NOT NULL,
  made_by TEXT NOT NULL,
  PRIMARY KEY (site, version)
);
CREATE TABLE devices (
  serial TEXT PRIMARY KEY,
  name TEXT NOT NULL,
  tags TEXT NOT NULL,
  site BIGINT REFERENCES sites (id) ON DELETE SET NULL,
  identity TEXT NOT NULL,
  binding TEXT NOT NULL,
  first_seen BIGINT NOT NULL,
  last_seen BIGINT NOT NULL,
  version BIGINT NOT NULL,
  overrides TEXT,
  knowledge TEXT
);
CREATE TABLE reports (
  serial TEXT NOT NULL REFERENCES devices (serial) ON DELETE CASCADE,
  report TEXT NOT NULL,
  asked_at BIGINT NOT NULL,
  answer TEXT NOT NULL,
  previous_asked_at BIGINT,
  previous_answer TEXT,
  PRIMARY KEY (serial, report)
);
CREATE TABLE samples (
  serial TEXT NOT NULL,
  at BIGINT NOT NULL,
  resolution BIGINT NOT NULL,
  cpu DOUBLE PRECISION,
  memory DOUBLE PRECISION,
  clients DOUBLE PRECISION,
  clients_24 DOUBLE PRECISION,
  clients_5 DOUBLE PRECISION,
  up_rate DOUBLE PRECISION,
  down_rate DOUBLE PRECISION,
  up_traffic DOUBLE PRECISION,
  down_traffic DOUBLE PRECISION,
  PRIMARY KEY (serial, resolution, at)
);
CREATE INDEX samples_age ON samples (resolution, at);
CREATE TABLE clients (
  mac TEXT NOT NULL,
  serial TEXT NOT NULL,
  ssid TEXT NOT NULL,
  band TEXT NOT NULL,
  ip TEXT NOT NULL,
  first_seen BIGINT NOT NULL,
  last_seen BIGINT NOT NULL,
  PRIMARY KEY (mac, serial, ssid, band, first_seen)
);
CREATE INDEX clients_ip ON clients (ip);
CREATE INDEX clients_age ON clients (last_seen);
CREATE TABLE alarms (
  id {{id}},
  serial TEXT NOT NULL,
  kind TEXT NOT NULL,
  event TEXT NOT NULL,
  at BIGINT NOT NULL,
  received_at BIGINT NOT NULL,
  state TEXT NOT NULL,
  acknowledged_by TEXT,
  acknowledged_at BIGINT,
  UNIQUE (serial, kind, at, event)
);
CREATE INDEX alarms_state ON alarms (state, id);
CREATE TABLE logs (
  id {{id}},
  serial TEXT NOT NULL,
  kind TEXT NOT NULL,
  time TEXT NOT NULL,
  event_type TEXT NOT NULL,
  event TEXT NOT NULL,
  received_at BIGINT NOT NULL,
  UNIQUE (serial, kind, time, event_type, event)
);
CREATE INDEX logs_device ON logs (serial, id);
CREATE INDEX logs_age ON logs (received_at);
CREATE TABLE commands (
  id {{id}},
  serial TEXT NOT NULL,
  command TEXT NOT NULL,
  request TEXT NOT NULL,
  sealed TEXT,
  ordered_by TEXT NOT NULL,
  ordered_at BIGINT NOT NULL,
  state TEXT NOT NULL,
  resp_code BIGINT,
  answer TEXT,
  duration_ms DOUBLE PRECISION,
  idempotency_key TEXT,
  UNIQUE (ordered_by, idempotency_key)
);
CREATE INDEX commands_device ON commands (serial, id);
CREATE INDEX commands_state ON commands (state);
CREATE TABLE users (
  name TEXT PRIMARY KEY,
  role TEXT NOT NULL,
  password TEXT NOT NULL
);
CREATE TABLE credentials (
  hash TEXT PRIMARY KEY,
  id TEXT NOT NULL UNIQUE,
  kind TEXT NOT NULL,
  name TEXT NOT NULL,
  user_name TEXT NOT NULL REFERENCES users (name) ON DELETE CASCADE,
  role TEXT NOT NULL,
  made_at BIGINT NOT NULL,
  expires_at BIGINT
);
CREATE TABLE audit (
  id {{id}},
  at BIGINT NOT NULL,
  user_name TEXT NOT NULL,
  action TEXT NOT NULL,
  target TEXT NOT NULL,
  detail TEXT NOT NULL,
  status BIGINT NOT NULL
);
