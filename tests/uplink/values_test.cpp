// Values go out when they change, and after a while also when they do not.

#include "uplink/values.h"

#include <json/reader.h>

#include "uplink/stand.h"
#include "uplink/value_messages.h"

using uplink::Values;

namespace {

class PresentValues : public testing::Test {
  protected:
    std::vector<std::string> taken(std::int64_t now) {
        values.look_at("m1", 1);
        std::vector<std::string> texts;
        for (const Values::Value& value : values.take(100, now))
            texts.push_back(value.item.name + ' ' + value.item.text);
        return texts;
    }
    void publish(const std::string& name, const std::string& text) { scene.write("/tmp/m1/1/tc_items/" + name, text); }

    Scene scene;
    Values values{1000};
};

using Texts = std::vector<std::string>;

TEST_F(PresentValues, GoOutWhenTheyChangeAndAfterTheLongestPause) {
    publish("T1", "1.5\n");
    publish("T2", "2.5\n");
    publish("foreign", "x\n");
    EXPECT_EQ(taken(10), (Texts{"T1 1.5", "T2 2.5"}));
    EXPECT_EQ(values.next_due(), 1010);
    publish("T2", "3.5\n");
    publish("T1", "");  // being written
    EXPECT_EQ(taken(500), Texts{"T2 3.5"});
    EXPECT_EQ(taken(1009), Texts{});
    EXPECT_EQ(taken(1010), Texts{"T1 1.5"});
    EXPECT_EQ(taken(1500), Texts{"T2 3.5"});
    values.forget_sent();
    EXPECT_EQ(taken(1501), (Texts{"T1 1.5", "T2 3.5"}));
}

TEST_F(PresentValues, OfItemsThatAreGoneAreSentNoMore) {
    publish("T1", "1.5\n");
    publish("T2", "2.5\n");
    EXPECT_EQ(taken(10), (Texts{"T1 1.5", "T2 2.5"}));
    scene.remove("/tmp/m1/1/tc_items/T2");
    EXPECT_EQ(taken(1010), Texts{"T1 1.5"});
    scene.remove("/tmp/m1/1/tc_items/T1");
    EXPECT_EQ(taken(2010), Texts{});
    EXPECT_EQ(values.next_due(), -1);
}

TEST_F(PresentValues, AreTakenSomeAtATime) {
    for (int i = 1; i <= 3; ++i) publish("T" + std::to_string(i), "1\n");
    values.look_at("m1", 1);
    EXPECT_EQ(values.take(2, 5).size(), 2U);
    EXPECT_EQ(values.next_due(), 0);
    EXPECT_EQ(values.take(2, 6).size(), 1U);
    EXPECT_EQ(values.next_due(), 1005);
}

TEST_F(PresentValues, AreAnnouncedOnceWithWhatIsKnownOfThem) {
    uplink::Settings settings = plain_settings();
    settings.gateway = "g 1";
    settings.discovery = true;
    scene.write("/etc/heatmeterd/units.conf", "[m1]\nIE1 = MWh\nT1 = °C\nP1 = at\n");
    publish("IE1", "1.5\n");
    publish("T1", "2.5\n");
    publish("P1", "3.5\n");
    publish("MeterModel", "KM5-2\n");
    values.look_at("m1", 1);
    std::vector<uplink::Message> messages;
    append_value_messages(settings, values.take(100, 1), messages);
    ASSERT_EQ(messages.size(), 9U);  // two of each, and the time
    std::map<std::string, Json::Value> configs;
    for (const uplink::Message& message : messages) {
        EXPECT_TRUE(message.is_retained);
        if (!message.topic.starts_with("homeassistant/sensor/heatmeter_g_201_")) continue;
        std::istringstream in(message.body);
        Json::Value config;
        in >> config;
        configs[config["state_topic"].asString()] = config;
    }
    ASSERT_EQ(configs.size(), 4U);
    const Json::Value& heat = configs["heatmeter/g 1/m1/1/value/IE1"];
    EXPECT_EQ(heat["device_class"], "energy");
    EXPECT_EQ(heat["state_class"], "total_increasing");
    EXPECT_EQ(heat["unit_of_measurement"], "MWh");
    EXPECT_EQ(configs["heatmeter/g 1/m1/1/value/T1"]["device_class"], "temperature");
    EXPECT_FALSE(configs["heatmeter/g 1/m1/1/value/P1"].isMember("device_class"));
    EXPECT_EQ(configs["heatmeter/g 1/m1/1/value/P1"]["unit_of_measurement"], "at");
    EXPECT_FALSE(configs["heatmeter/g 1/m1/1/value/MeterModel"].isMember("state_class"));
    messages.clear();
    append_value_messages(settings, values.take(100, 2000), messages);
    EXPECT_EQ(messages.size(), 5U);
}

}  // namespace
