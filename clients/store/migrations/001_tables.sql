-- What all lines of all gateways stand in. A line costs about 100 bytes with its index, so the texts that repeat stand
-- in dictionaries.

CREATE TABLE stream (
    number smallint PRIMARY KEY CHECK (number BETWEEN 1 AND 255),
    name text NOT NULL,
    created bigint NOT NULL,  -- nanoseconds since 1970; a stream that was made anew is another one and counts from 1
    UNIQUE (name, created)
);

CREATE TABLE meter_system (
    id integer GENERATED ALWAYS AS IDENTITY PRIMARY KEY,
    gateway text NOT NULL,
    meter text NOT NULL,
    system integer NOT NULL,
    UNIQUE (meter, gateway, system)
);

CREATE TABLE archive_name (
    id integer GENERATED ALWAYS AS IDENTITY PRIMARY KEY,
    kind text NOT NULL,  -- hourly, daily, event
    name text NOT NULL,
    UNIQUE (name, kind)
);

-- Hourly and daily lines. Of the same name and time the line that was written last counts: `written` is the number of
-- the stream, the sequence in it and the place in the message, in one number that grows. A record's values stand
-- beside each other in the index: to add one touches one page, and not twenty.
CREATE TABLE record (
    time timestamptz NOT NULL,
    value double precision NOT NULL,
    written bigint NOT NULL,
    system_id integer NOT NULL,
    name_id integer NOT NULL,
    quality integer NOT NULL,
    PRIMARY KEY (system_id, time, name_id)
) PARTITION BY RANGE (time);

-- Several events of the same second exist.
CREATE TABLE event (
    time timestamptz NOT NULL,
    value double precision NOT NULL,
    written bigint NOT NULL,
    system_id integer NOT NULL,
    name_id integer NOT NULL,
    quality integer NOT NULL,
    PRIMARY KEY (system_id, time, name_id, quality, value)
) PARTITION BY RANGE (time);

-- Clocks that were never set. No partition stands for what is later than all months: a gateway's clock ends in 2038.
CREATE TABLE record_before_2000 PARTITION OF record FOR VALUES FROM (MINVALUE) TO ('2000-01-01 00:00:00+00');
CREATE TABLE event_before_2000 PARTITION OF event FOR VALUES FROM (MINVALUE) TO ('2000-01-01 00:00:00+00');

-- Makes the partitions of the month that begins with this day, in UTC. To attach one lets readers and writers go on.
CREATE FUNCTION make_month(month date) RETURNS void LANGUAGE plpgsql AS $$
DECLARE
    parent text;
    child text;
BEGIN
    PERFORM pg_advisory_xact_lock(hashtext('heatmeter-store months'));
    FOREACH parent IN ARRAY ARRAY['record', 'event'] LOOP
        child := parent || to_char(month, '_YYYY_MM');
        CONTINUE WHEN to_regclass(child) IS NOT NULL;
        EXECUTE format('CREATE TABLE %I (LIKE %I INCLUDING ALL)', child, parent);
        EXECUTE format('ALTER TABLE %I ATTACH PARTITION %I FOR VALUES FROM (%L) TO (%L)', parent, child,
                       month::timestamp AT TIME ZONE 'UTC', (month + interval '1 month') AT TIME ZONE 'UTC');
    END LOOP;
END
$$;

-- Messages, and single lines of messages, that are none, as they came. `line` is -1 where it is the whole message.
CREATE TABLE rejected (
    subject text NOT NULL,
    sequence bigint NOT NULL,
    reason text NOT NULL,
    body bytea NOT NULL,  -- at most its first 64 KiB
    arrived timestamptz NOT NULL DEFAULT now(),
    stream smallint NOT NULL REFERENCES stream,
    line integer NOT NULL,
    PRIMARY KEY (stream, sequence, line)
);

-- What readers may rely on.
CREATE VIEW record_line AS
SELECT s.gateway, s.meter, s.system, n.kind, n.name, r.time, r.quality, r.value
FROM (SELECT system_id, name_id, time, quality, value FROM record
      UNION ALL
      SELECT system_id, name_id, time, quality, value FROM event) AS r
JOIN meter_system AS s ON s.id = r.system_id
JOIN archive_name AS n ON n.id = r.name_id;
