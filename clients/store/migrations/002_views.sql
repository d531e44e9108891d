-- For people: a row for each record with its values side by side, what was consumed in a month, and what is missing.
-- Months and days are those of the session's time zone (SET timezone). Give the meter: a condition on it is looked up,
-- one on the time of a record alone reads everything.

-- `time` is the record's end. Means, and sums of the period itself, are dated at its beginning, totals at its end.
CREATE VIEW hourly_record AS
SELECT gateway, meter, system, ends AS time,
       max(value) FILTER (WHERE name = 'A1') AS A1,
       max(value) FILTER (WHERE name = 'A2') AS A2,
       max(value) FILTER (WHERE name = 'A3') AS A3,
       max(value) FILTER (WHERE name = 'A4') AS A4,
       max(value) FILTER (WHERE name = 'A5') AS A5,
       max(value) FILTER (WHERE name = 'A6') AS A6,
       max(value) FILTER (WHERE name = 'A7') AS A7,
       max(value) FILTER (WHERE name = 'A8') AS A8,
       max(value) FILTER (WHERE name = 'A9') AS A9,
       max(value) FILTER (WHERE name = 'A10') AS A10,
       max(value) FILTER (WHERE name = 'A11') AS A11,
       max(value) FILTER (WHERE name = 'A12') AS A12,
       max(value) FILTER (WHERE name = 'A13') AS A13,
       max(value) FILTER (WHERE name = 'A14') AS A14,
       max(value) FILTER (WHERE name = 'A15') AS A15,
       max(value) FILTER (WHERE name = 'A16') AS A16,
       max(value) FILTER (WHERE name = 'A17') AS A17,
       max(value) FILTER (WHERE name = 'A18') AS A18,
       max(value) FILTER (WHERE name = 'A19') AS A19,
       max(value) FILTER (WHERE name = 'A20') AS A20,
       max(value) FILTER (WHERE name = 'A21') AS A21,
       max(value) FILTER (WHERE name = 'A22') AS A22,
       max(value) FILTER (WHERE name = 'A23') AS A23,
       max(value) FILTER (WHERE name = 'A24') AS A24,
       max(value) FILTER (WHERE name = 'A25') AS A25,
       max(value) FILTER (WHERE name = 'A26') AS A26,
       max(value) FILTER (WHERE name = 'A27') AS A27,
       max(value) FILTER (WHERE name = 'A28') AS A28,
       max(value) FILTER (WHERE name = 'T4') AS T4,
       max(value) FILTER (WHERE name = '_A20') AS _A20,
       max(value) FILTER (WHERE name = '_A21') AS _A21
FROM (SELECT s.gateway, s.meter, s.system, n.name, r.value,
             CASE WHEN n.name IN ('A1', 'A4', 'A6', 'A8', 'A10', 'A12', 'A14', 'A16')
                  THEN r.time ELSE r.time + interval '1 hour' END AS ends
      FROM record AS r
      JOIN meter_system AS s ON s.id = r.system_id
      JOIN archive_name AS n ON n.id = r.name_id AND n.kind = 'hourly') AS dated
GROUP BY gateway, meter, system, ends;
COMMENT ON COLUMN hourly_record.A1 IS 'heat';
COMMENT ON COLUMN hourly_record.A2 IS 'heat of the hour';
COMMENT ON COLUMN hourly_record.A3 IS 'running time in the hour';
COMMENT ON COLUMN hourly_record.A4 IS 'running time';
COMMENT ON COLUMN hourly_record.A5 IS 'volume 1 of the hour';
COMMENT ON COLUMN hourly_record.A6 IS 'volume 1';
COMMENT ON COLUMN hourly_record.A7 IS 'volume 2 of the hour';
COMMENT ON COLUMN hourly_record.A8 IS 'volume 2';
COMMENT ON COLUMN hourly_record.A9 IS 'volume 3 of the hour';
COMMENT ON COLUMN hourly_record.A10 IS 'volume 3';
COMMENT ON COLUMN hourly_record.A11 IS 'mass 1 of the hour';
COMMENT ON COLUMN hourly_record.A12 IS 'mass 1';
COMMENT ON COLUMN hourly_record.A13 IS 'mass 2 of the hour';
COMMENT ON COLUMN hourly_record.A14 IS 'mass 2';
COMMENT ON COLUMN hourly_record.A15 IS 'mass 3 of the hour';
COMMENT ON COLUMN hourly_record.A16 IS 'mass 3';
COMMENT ON COLUMN hourly_record.A17 IS 'pressure 1';
COMMENT ON COLUMN hourly_record.A18 IS 'pressure 2';
COMMENT ON COLUMN hourly_record.A19 IS 'pressure 3';
COMMENT ON COLUMN hourly_record.A20 IS 'temperature 1';
COMMENT ON COLUMN hourly_record.A21 IS 'temperature 2';
COMMENT ON COLUMN hourly_record.A22 IS 'temperature 3';
COMMENT ON COLUMN hourly_record.A23 IS 'time of condition 1';
COMMENT ON COLUMN hourly_record.A24 IS 'time of condition 2';
COMMENT ON COLUMN hourly_record.A25 IS 'time of condition 3';
COMMENT ON COLUMN hourly_record.A26 IS 'time of condition 4';
COMMENT ON COLUMN hourly_record.A27 IS 'time of condition 5';
COMMENT ON COLUMN hourly_record.A28 IS 'status bits';
COMMENT ON COLUMN hourly_record.T4 IS 'temperature 4';
COMMENT ON COLUMN hourly_record._A20 IS 'temperature 1';
COMMENT ON COLUMN hourly_record._A21 IS 'temperature 2';

CREATE VIEW daily_record AS
SELECT gateway, meter, system, ends AS time,
       max(value) FILTER (WHERE name = 'A29') AS A29,
       max(value) FILTER (WHERE name = 'A31') AS A31,
       max(value) FILTER (WHERE name = 'A32') AS A32,
       max(value) FILTER (WHERE name = 'A33') AS A33,
       max(value) FILTER (WHERE name = 'A34') AS A34,
       max(value) FILTER (WHERE name = 'A35') AS A35,
       max(value) FILTER (WHERE name = 'A36') AS A36,
       max(value) FILTER (WHERE name = 'A38') AS A38,
       max(value) FILTER (WHERE name = 'A39') AS A39,
       max(value) FILTER (WHERE name = 'A40') AS A40,
       max(value) FILTER (WHERE name = 'A41') AS A41,
       max(value) FILTER (WHERE name = 'A42') AS A42,
       max(value) FILTER (WHERE name = 'A44') AS A44,
       max(value) FILTER (WHERE name = 'A45') AS A45,
       max(value) FILTER (WHERE name = 'A46') AS A46,
       max(value) FILTER (WHERE name = 'A47') AS A47,
       max(value) FILTER (WHERE name = 'A48') AS A48,
       max(value) FILTER (WHERE name = 'A49') AS A49,
       max(value) FILTER (WHERE name = 'A50') AS A50,
       max(value) FILTER (WHERE name = 'A52') AS A52,
       max(value) FILTER (WHERE name = 'A53') AS A53,
       max(value) FILTER (WHERE name = 'A54') AS A54,
       max(value) FILTER (WHERE name = '_A48') AS _A48,
       max(value) FILTER (WHERE name = '_A49') AS _A49
FROM (SELECT s.gateway, s.meter, s.system, n.name, r.value,
             CASE WHEN n.name IN ('A29', 'A32', 'A34', 'A36', 'A38', 'A40', 'A42', 'A44')
                  THEN r.time ELSE r.time + interval '1 day' END AS ends
      FROM record AS r
      JOIN meter_system AS s ON s.id = r.system_id
      JOIN archive_name AS n ON n.id = r.name_id AND n.kind = 'daily') AS dated
GROUP BY gateway, meter, system, ends;
COMMENT ON COLUMN daily_record.A29 IS 'heat';
COMMENT ON COLUMN daily_record.A31 IS 'running time in the day';
COMMENT ON COLUMN daily_record.A32 IS 'running time';
COMMENT ON COLUMN daily_record.A33 IS 'volume 1 of the day';
COMMENT ON COLUMN daily_record.A34 IS 'volume 1';
COMMENT ON COLUMN daily_record.A35 IS 'volume 2 of the day';
COMMENT ON COLUMN daily_record.A36 IS 'volume 2';
COMMENT ON COLUMN daily_record.A38 IS 'volume 3';
COMMENT ON COLUMN daily_record.A39 IS 'mass 1 of the day';
COMMENT ON COLUMN daily_record.A40 IS 'mass 1';
COMMENT ON COLUMN daily_record.A41 IS 'mass 2 of the day';
COMMENT ON COLUMN daily_record.A42 IS 'mass 2';
COMMENT ON COLUMN daily_record.A44 IS 'mass 3';
COMMENT ON COLUMN daily_record.A45 IS 'pressure 1';
COMMENT ON COLUMN daily_record.A46 IS 'pressure 2';
COMMENT ON COLUMN daily_record.A47 IS 'pressure 3';
COMMENT ON COLUMN daily_record.A48 IS 'temperature 1';
COMMENT ON COLUMN daily_record.A49 IS 'temperature 2';
COMMENT ON COLUMN daily_record.A50 IS 'temperature 3';
COMMENT ON COLUMN daily_record.A52 IS 'time of condition 2';
COMMENT ON COLUMN daily_record.A53 IS 'time of condition 3';
COMMENT ON COLUMN daily_record.A54 IS 'time of condition 4';
COMMENT ON COLUMN daily_record._A48 IS 'temperature 1';
COMMENT ON COLUMN daily_record._A49 IS 'temperature 2';

-- Of each total its last good reading of a month, and what it grew by since the one before, which is that of the month
-- before unless `since` tells otherwise. Null where the total fell: the meter was another one, or was set back.
CREATE VIEW monthly_consumption AS
SELECT gateway, meter, system, kind, name, month, lag(until) OVER series AS since, until, reading,
       CASE WHEN reading >= lag(reading) OVER series THEN reading - lag(reading) OVER series END AS consumption
FROM (SELECT DISTINCT ON (s.gateway, s.meter, s.system, n.kind, n.name, month)
             s.gateway, s.meter, s.system, n.kind, n.name, r.time AS until, r.value AS reading,
             -- A reading of midnight ends the month before.
             date_trunc('month', r.time - interval '1 second')::date AS month
      FROM record AS r
      JOIN meter_system AS s ON s.id = r.system_id
      JOIN archive_name AS n ON n.id = r.name_id
      WHERE r.quality = 192 AND r.value > '-Infinity' AND r.value < 'Infinity'
        AND n.name IN ('A1', 'A4', 'A6', 'A8', 'A10', 'A12', 'A14', 'A16', 'A29', 'A32', 'A34', 'A36', 'A38', 'A40',
                       'A42', 'A44')
      ORDER BY s.gateway, s.meter, s.system, n.kind, n.name, month, r.time DESC) AS readings
WINDOW series AS (PARTITION BY gateway, meter, system, kind, name ORDER BY month);

-- Records that are not there between two that are, by the totals, which every meter has.
CREATE VIEW record_gap AS
SELECT gateway, meter, system, kind, time + length AS first_missing, following - length AS last_missing,
       round(extract(epoch FROM following - time) / extract(epoch FROM length))::bigint - 1 AS missing
FROM (SELECT gateway, meter, system, kind, length, time,
             lead(time) OVER (PARTITION BY gateway, meter, system, kind, length ORDER BY time) AS following
      FROM (SELECT DISTINCT s.gateway, s.meter, s.system, n.kind, r.time,
                   CASE n.kind WHEN 'hourly' THEN interval '1 hour' ELSE interval '1 day' END AS length
            FROM record AS r
            JOIN meter_system AS s ON s.id = r.system_id
            JOIN archive_name AS n ON n.id = r.name_id
            WHERE n.name IN ('A1', 'A4', 'A6', 'A8', 'A10', 'A12', 'A14', 'A16', 'A29', 'A32', 'A34', 'A36', 'A38',
                             'A40', 'A42', 'A44')) AS times) AS steps
WHERE following > time + length;
