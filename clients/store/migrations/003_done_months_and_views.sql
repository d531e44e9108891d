-- The sequences of the messages that have been written, or rejected: what else the stream has was forgotten on the way.
ALTER TABLE stream ADD COLUMN done int8multirange NOT NULL DEFAULT '{}';

-- The partitions of the month that begins with this day, in UTC. To attach one lets readers and writers go on. One that
-- somebody has detached stays what it is, and the new one gets another name.
CREATE OR REPLACE FUNCTION make_month(month date) RETURNS void LANGUAGE plpgsql AS $$
DECLARE
    parent text;
    child text;
BEGIN
    PERFORM pg_advisory_xact_lock(hashtext('heatmeter-store months'));
    FOREACH parent IN ARRAY ARRAY['record', 'event'] LOOP
        child := parent || to_char(month, '_YYYY_MM');
        WHILE EXISTS (SELECT FROM pg_class WHERE oid = to_regclass(child) AND NOT relispartition) LOOP
            child := child || '_again';
        END LOOP;
        CONTINUE WHEN to_regclass(child) IS NOT NULL;
        EXECUTE format('CREATE TABLE %I (LIKE %I INCLUDING ALL)', child, parent);
        EXECUTE format('ALTER TABLE %I ATTACH PARTITION %I FOR VALUES FROM (%L) TO (%L)', parent, child,
                       month::timestamp AT TIME ZONE 'UTC', (month + interval '1 month') AT TIME ZONE 'UTC');
    END LOOP;
END
$$;

-- Of each total its last good reading of a month, and what it grew by since the one before, which is that of the month
-- before unless `since` tells otherwise. Null for a month in which it fell: the meter was changed, or set back.
DROP VIEW monthly_consumption;
CREATE VIEW monthly_consumption AS
SELECT gateway, meter, system, kind, name, month, lag(until) OVER series AS since, until, reading,
       CASE WHEN NOT fell THEN reading - lag(reading) OVER series END AS consumption
FROM (SELECT gateway, meter, system, kind, name, month, max(time) AS until,
             (array_agg(value ORDER BY time DESC))[1] AS reading, coalesce(bool_or(value < earlier), false) AS fell
      FROM (SELECT s.gateway, s.meter, s.system, n.kind, n.name, r.time, r.value,
                   lag(r.value) OVER (PARTITION BY s.gateway, s.meter, s.system, n.kind, n.name ORDER BY r.time) AS earlier,
                   -- A reading of midnight ends the month before.
                   date_trunc('month', r.time - interval '1 second')::date AS month
            FROM record AS r
            JOIN meter_system AS s ON s.id = r.system_id
            JOIN archive_name AS n ON n.id = r.name_id
            WHERE r.quality = 192 AND r.value > '-Infinity' AND r.value < 'Infinity'
              AND n.name IN ('A1', 'A4', 'A6', 'A8', 'A10', 'A12', 'A14', 'A16', 'A29', 'A32', 'A34', 'A36', 'A38',
                             'A40', 'A42', 'A44')) AS readings
      GROUP BY gateway, meter, system, kind, name, month) AS months
WINDOW series AS (PARTITION BY gateway, meter, system, kind, name ORDER BY month);

-- Records that are not there between two that are, by the totals, which every meter has. A day may have 25 hours.
DROP VIEW record_gap;
CREATE VIEW record_gap AS
SELECT gateway, meter, system, kind, time + length AS first_missing, following - length AS last_missing, missing
FROM (SELECT *, round(extract(epoch FROM following - time) / extract(epoch FROM length))::bigint - 1 AS missing
      FROM (SELECT gateway, meter, system, kind, length, time,
                   lead(time) OVER (PARTITION BY gateway, meter, system, kind, length ORDER BY time) AS following
            FROM (SELECT DISTINCT s.gateway, s.meter, s.system, n.kind, r.time,
                         CASE n.kind WHEN 'hourly' THEN interval '1 hour' ELSE interval '1 day' END AS length
                  FROM record AS r
                  JOIN meter_system AS s ON s.id = r.system_id
                  JOIN archive_name AS n ON n.id = r.name_id
                  WHERE n.name IN ('A1', 'A4', 'A6', 'A8', 'A10', 'A12', 'A14', 'A16', 'A29', 'A32', 'A34', 'A36', 'A38',
                                   'A40', 'A42', 'A44')) AS times) AS pairs) AS steps
WHERE missing > 0;

-- The newest record of each system up to now, null for one that has none: who is silent. It looks into indexes alone.
CREATE VIEW newest_record AS
SELECT gateway, meter, system, time
FROM meter_system
LEFT JOIN LATERAL (SELECT time FROM record WHERE system_id = id AND time <= now() ORDER BY time DESC LIMIT 1) AS newest
    ON true;
