// What is answered to whom, without a connection.

#include "view/api.h"

#include <poll.h>

#include <gtest/gtest.h>
#include <json/reader.h>

#include "support/scene.h"
#include "view/built_in.h"

using view::Answer;

namespace {

constexpr const char* Archives = "/mnt/storage/m1/1/tc_archives/";

Json::Value json_of(const std::string& text) {
    Json::Value value;
    std::string fault;
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &value, &fault)) << fault << text;
    return value;
}

class Pages : public testing::Test {
  protected:
    Pages() {
        scene.write("/tmp/m1/1/tc_items/T1", "71.250000\n");
        scene.write("/tmp/m1/1/tc_items/IM1", "120.500000\n");
        scene.write("/tmp/m1/1/tc_items/MeterModel", "<script>\x01\xFF\n");
        scene.write(std::string(Archives) + "A1", "1700002800,192,1.500000\n1700006400,64,2.500000\n");
        scene.write(std::string(Archives) + "A20", "1700002800,192,71.000000\n");
        scene.write(std::string(Archives) + "_A57", "1700002800,192,87.000000\n1700006400,0,87.000000\n");
    }

    /// All of an answer; a job is done at once, a look at the status waited for.
    Answer ask(const std::string& target) {
        const auto request = view::parse_target(target);
        if (!request) return view::refusal(400, "");
        view::Reply reply = api.answer(*request, counts, false);
        if (std::holds_alternative<view::AfterStatus>(reply)) {
            bool done = false;
            look.again([&done] { done = true; });
            while (!done) {
                pollfd waiting{.fd = mailbox.descriptor(), .events = POLLIN, .revents = 0};
                ::poll(&waiting, 1, -1);
                mailbox.run();
            }
            reply = api.answer(*request, counts, true);
        }
        if (auto* const job = std::get_if<view::Job>(&reply)) reply = (*job)();
        if (std::holds_alternative<view::EventStream>(reply)) return view::refusal(200, "a stream");
        Answer answer = std::get<Answer>(std::move(reply));
        if (answer.source) {
            view::Source::Piece piece{};
            while ((piece = answer.source->next(answer.body)) == view::Source::Piece::More) {
            }
            EXPECT_EQ(piece, view::Source::Piece::End);
            answer.source.reset();
        }
        return answer;
    }

    Scene scene;
    contract::Live live{{}};
    view::Counts counts;
    view::Mailbox mailbox;
    view::Worker worker{1};
    view::Look look{worker, mailbox};
    view::Api api{live, look};
};

TEST_F(Pages, OfTheProgramItselfAreBuiltIn) {
    EXPECT_EQ(ask("/").type, "text/html; charset=utf-8");
    EXPECT_EQ(ask("/").fixed_body, ask("/index.html").fixed_body);
    EXPECT_EQ(ask("/dygraph.min.js").type, "text/javascript; charset=utf-8");
    for (const view::BuiltIn& file : view::built_in_files()) {
        EXPECT_FALSE(file.text.empty()) << file.name;
        EXPECT_EQ(file.text.find("http://"), file.text.find("http://www.w3.org/2000/svg")) << file.name;
    }
    EXPECT_EQ(ask("/nothing").status, 404U);
}

TEST_F(Pages, OfValuesHoldNumbersAsNumbersAndTextAsText) {
    const Json::Value values = json_of(ask("/api/meters/m1/1/values").body)["values"];
    ASSERT_EQ(values.size(), 3U);
    EXPECT_EQ(values[0]["name"], "IM1");
    EXPECT_EQ(values[0]["value"], 120.5);
    EXPECT_EQ(values[0]["title"], "mass 1");
    EXPECT_EQ(values[1]["value"], "<script>\x01\xEF\xBF\xBD");
    EXPECT_EQ(ask("/api/meters/m1/1/values").body.find('\x01'), std::string::npos);
}

TEST_F(Pages, SeeMetersThatCome) {
    EXPECT_EQ(ask("/api/meters/m2/1/values").status, 404U);
    scene.write("/tmp/m2/1/tc_items/T1", "1\n");
    EXPECT_EQ(ask("/api/meters/m2/1/values").status, 200U);
}

TEST_F(Pages, AreOfMetersAlone) {
    scene.write("/tmp/other/file", "secret");
    for (const char* const none :
         {"/api/meters/other/1/values", "/api/meters/m1/2/values", "/api/meters/m1/01/values", "/api/meters/m1/1/file",
          "/api/meters/m1/1", "/api/meters/m1/1/values/T1", "/api", "/api/x", "/tmp/m1/1/tc_items/T1", "/healthz/x"}) {
        EXPECT_EQ(ask(none).status, 404U) << none;
    }
}

TEST_F(Pages, OfRecordsAreWhatTheCommandPrints) {
    EXPECT_EQ(ask("/api/meters/m1/1/archive?format=csv").body,
              "time,A1,A20\n2023-11-14T23:00:00+00:00,1.500000,71.000000\n2023-11-15T00:00:00+00:00,2.500000,\n");
    const Answer csv = ask("/api/meters/m1/1/archive?format=csv&epoch=1&quality=1&names=A1");
    EXPECT_EQ(csv.body, "time,A1,A1.q\n1700002800,1.500000,192\n1700006400,2.500000,64\n");
    EXPECT_EQ(csv.headers.front().second, "attachment; filename=\"m1-1-hourly.csv\"");
    EXPECT_EQ(
        ask("/api/meters/m1/1/archive?names=A1&from=1700006400").body,
        "{\"meter\":\"m1\",\"system\":1,\"kind\":\"hourly\",\"names\":[\"A1\"],\"rows\":[[1700006400,2.500000]]}\n");
    EXPECT_EQ(ask("/api/meters/m1/1/archive?format=csv&long=1&good=1&names=A1").body,
              "time,name,quality,value\n2023-11-14T23:00:00+00:00,A1,192,1.500000\n");
    EXPECT_EQ(ask("/api/meters/m1/1/archive?format=csv&by=record&epoch=1&names=A1,A20").body,
              "time,A1,A20\n1700002800,1.500000,\n1700006400,2.500000,71.000000\n");
}

TEST_F(Pages, OfRecordsForAChartTellWhatIsMissingOrBad) {
    const Json::Value chart = json_of(ask("/api/meters/m1/1/archive?names=A1&points=100").body);
    EXPECT_EQ(chart["rows"].size(), 2U);
    EXPECT_EQ(chart["step"], 0);
    EXPECT_EQ(chart["from"], 1700002800);
    EXPECT_EQ(chart["to"], 1700006400);
    EXPECT_EQ(chart["holes"]["A1"].size(), 0U);
    EXPECT_EQ(chart["bad"]["A1"][0][0], 1700006400);
}

TEST_F(Pages, RefuseWhatTheyDoNotUnderstand) {
    for (const char* const words : {"kind=weekly", "from=soon", "points=1", "points=10001", "points=x", "format=xml",
                                    "by=name", "names=..", "names=a%01b/"}) {
        const Answer answer = ask(std::string("/api/meters/m1/1/archive?") + words);
        EXPECT_EQ(answer.status, 400U) << words;
    }
    EXPECT_EQ(ask("/api/meters/m1/1/archive?kind=daily").status, 404U);
    EXPECT_EQ(ask("/api/meters/m1/1/archive?names=A999&points=10").status, 404U);
}

TEST_F(Pages, OfRecordsAreNotReadByEverybodyAtOnce) {
    std::vector<Answer> open;
    const auto request = *view::parse_target("/api/meters/m1/1/archive?format=csv");
    const auto read = [&] { return std::get<view::Job>(api.answer(request, counts, false))(); };
    for (int i = 0; i < 4; ++i) open.push_back(read());
    EXPECT_EQ(read().status, 503U);
    open.pop_back();
    EXPECT_EQ(read().status, 200U);
}

TEST_F(Pages, OfArchivesAndEventsTellWhatThereIs) {
    const Json::Value archives = json_of(ask("/api/meters/m1/1/archives").body)["archives"];
    ASSERT_EQ(archives.size(), 3U);
    EXPECT_EQ(archives[1]["name"], "A20");
    EXPECT_EQ(archives[1]["dating"], "beginning");
    EXPECT_EQ(archives[0]["from"], 1700002800);
    EXPECT_EQ(archives[0]["to"], 1700006400);
    const Json::Value events = json_of(ask("/api/meters/m1/1/events?from=1700000000").body)["events"];
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0]["code"], "87");
    EXPECT_EQ(events[0]["end"], 1700006400);
}

TEST_F(Pages, OfTheStatusTellItsReasonsInWords) {
    const Json::Value overview = json_of(ask("/api/overview").body);
    EXPECT_EQ(overview["meters"][0]["uuid"], "m1");
    EXPECT_FALSE(overview["meters"][0]["reasons"][0]["text"].asString().empty());
    EXPECT_EQ(json_of(ask("/api/meters").body)["meters"][0]["reasons"][0].asString(),
              overview["meters"][0]["reasons"][0]["word"].asString());
}

TEST_F(Pages, OfMetricsAreWrittenAsPrometheusReadsThem) {
    scene.write("/etc/heatmeterd/units.conf", "[m1]\nT1 = \xC2\xB0\x43\n");
    counts.answers[200] = 3;
    const std::string text = ask("/metrics").body;
    EXPECT_NE(text.find("heatmeter_value{meter=\"m1\",system=\"1\",name=\"T1\",quantity=\"temperature\",unit=\"\xC2\xB0"
                        "C\"} 71.25\n"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("# TYPE heatmeter_value_total counter\n"), std::string::npos);
    EXPECT_NE(
        text.find("heatmeter_value_total{meter=\"m1\",system=\"1\",name=\"IM1\",quantity=\"mass\",unit=\"\"} 120.5"),
        std::string::npos);
    EXPECT_NE(text.find("heatmeter_view_requests_total{code=\"200\"} 3\n"), std::string::npos);
    EXPECT_NE(
        text.find("heatmeter_archive_newest_timestamp_seconds{meter=\"m1\",system=\"1\",kind=\"hourly\"} 1700006400\n"),
        std::string::npos);
    EXPECT_EQ(text.find("MeterModel"), std::string::npos);
}

TEST(Zone, IsToldAsTimesAndOffsets) {
    const Scene scene("2024-03-02 10:00:00", "CET-1CEST,M3.5.0,M10.5.0/3");
    contract::Live live{{}};
    view::Mailbox mailbox;
    view::Worker worker(1);
    view::Look look(worker, mailbox);
    view::Api api(live, look);
    const view::Reply reply = api.answer(*view::parse_target("/api/zone"), {}, false);
    const Json::Value offsets = json_of(std::get<Answer>(reply).body)["offsets"];
    EXPECT_EQ(offsets[0][1], 3600);
    bool found = false;
    for (const Json::Value& entry : offsets) {
        if (entry[0] == 1711846800) found = entry[1] == 7200;  // 2024-03-31 01:00 UTC
    }
    EXPECT_TRUE(found);
}

}  // namespace
