// Who the meter is: model, type letters, firmware, single parameters.

#include <string>
#include <vector>

#include "support/km5_scene.h"

namespace {

using km5_frames::answer;
using sim::ByteVector;

/// The identity answer: four address bytes, then the model counted from 0.
ByteVector identity(std::uint8_t index) {
    return answer(0, {0x78, 0x56, 0x34, 0x12, index, 0, 0, 0, 0});
}

/// The version answer: text at 5..8, type letters at 11..14.
ByteVector version(const std::string& text, const std::string& letters) {
    ByteVector payload(text.begin(), text.end());
    payload.resize(6, 0);
    payload.insert(payload.end(), letters.begin(), letters.end());
    return answer(9, payload);
}

class Km5Models : public Km5Stand {
  protected:
    Km5Models() {
        machine.connect(Port, meter);
        start_driver();
    }

    bool recognise(std::uint8_t index, const std::string& letters) {
        meter.say(identity(index)).say(version("2.15", letters));
        return driver->getModel();
    }

    Km5Script meter;
};

TEST_F(Km5Models, TheModelIsTheIndexPlusOne) {
    for (int index = 0; index < 6; ++index) {
        EXPECT_TRUE(recognise(static_cast<std::uint8_t>(index), "KM51"));
        EXPECT_EQ(carried().meter.model, index + 1);
    }
    EXPECT_FALSE(carried().meter.km56i_mode);
    EXPECT_FALSE(carried().meter.isATT);
}

TEST_F(Km5Models, RecognisingAMeterTakesTwoRequestsAndLeavesConnectedAlone) {
    EXPECT_TRUE(recognise(1, "KM52"));
    EXPECT_EQ(asked(requests()), (std::vector<std::vector<int>>{{0, 0}, {9, 0}}));
    EXPECT_EQ(connected(), "(none)(none)(none)(none)(none)(none)");
}

TEST_F(Km5Models, TheLettersKM5IMakeAKm56iOfModel7) {
    EXPECT_TRUE(recognise(2, "KM5I"));
    EXPECT_TRUE(carried().meter.km56i_mode);
    EXPECT_EQ(carried().meter.model, 7);
}

TEST_F(Km5Models, LettersLikeKM5IAreNotEnough) {
    for (const char* letters : {"KM5i", "km5I", "KM5J", " KM5"}) {
        EXPECT_TRUE(recognise(2, letters));
        EXPECT_FALSE(carried().meter.km56i_mode) << letters;
        EXPECT_EQ(carried().meter.model, 3);
    }
}

TEST_F(Km5Models, TheLettersATTMakeAnAttWhateverTheFourth) {
    EXPECT_TRUE(recognise(1, "ATTx"));
    EXPECT_TRUE(carried().meter.isATT);
    EXPECT_EQ(carried().meter.model, 2);
    EXPECT_EQ(logged("messages", "isATT! "), 1);
}

TEST_F(Km5Models, AnAttStaysOneAlthoughTheLettersChange) {
    EXPECT_TRUE(recognise(1, "ATT2"));
    EXPECT_TRUE(recognise(1, "KM52"));
    EXPECT_TRUE(carried().meter.isATT);
}

TEST_F(Km5Models, AKm56iIsForgottenWhenTheLettersChange) {
    EXPECT_TRUE(recognise(0, "KM5I"));
    EXPECT_TRUE(recognise(0, "KM51"));
    EXPECT_FALSE(carried().meter.km56i_mode);
    EXPECT_EQ(carried().meter.model, 1);
}

TEST_F(Km5Models, Index255IsModel256WhichNobodyKnows) {
    EXPECT_TRUE(recognise(255, "KM51"));
    EXPECT_EQ(carried().meter.model, 256);
}

TEST_F(Km5Models, Index6WithoutTheLettersIsAModel7WithoutAName) {
    EXPECT_TRUE(recognise(6, "KM57"));
    EXPECT_EQ(carried().meter.model, 7);
    EXPECT_FALSE(carried().meter.km56i_mode);
}

TEST_F(Km5Models, AnAttOfIndex7IsAModel8WithoutANumber) {
    EXPECT_TRUE(recognise(7, "ATT8"));
    EXPECT_EQ(carried().meter.model, 8);
}

TEST_F(Km5Models, WithoutAnIdentityNothingIsLearned) {
    EXPECT_TRUE(recognise(3, "KM5I"));
    EXPECT_FALSE(driver->getModel());
    EXPECT_EQ(carried().meter.model, 7);
    EXPECT_TRUE(carried().meter.km56i_mode);
    EXPECT_EQ(meter.heard.size(), 2U + 21U);
    EXPECT_EQ(connected(), "(none)(none)(none)(none)(none)(none)");
}

TEST_F(Km5Models, WithoutLettersTheModelIsKeptAndTheModeIsClear) {
    EXPECT_TRUE(recognise(3, "KM5I"));
    meter.say(identity(4));
    EXPECT_FALSE(driver->getModel());
    EXPECT_EQ(carried().meter.model, 5);
    EXPECT_FALSE(carried().meter.km56i_mode);
}

TEST_F(Km5Models, TheRawLettersAreLoggedWhateverTheOutcome) {
    recognise(0, "KM51");
    EXPECT_EQ(logged("messages", "raw model_type: KM51"), 1);
    meter.say(identity(4));
    driver->getModel();
    EXPECT_EQ(logged_parts("messages", {"raw model_type: "}), 2);
}

TEST_F(Km5Models, TheModelIsLoggedInBothLogs) {
    recognise(3, "KM54");
    EXPECT_EQ(logged("messages", "Start getModel"), 1);
    for (const char* kind : {"messages", "debug"}) {
        EXPECT_EQ(logged(kind, "Model = 4"), 1);
        EXPECT_EQ(logged(kind, "EEPROM_MODEL = 0"), 1);
    }
}

TEST_F(Km5Models, LettersThatDoNotComeAreThoseOfTheAnswerBefore) {
    meter.say(answer(0, {0x78, 0x56, 0x34, 0x12, 2, 0, 'A', 'T', 'T', 'x'}));
    EXPECT_FALSE(driver->getModel());
    EXPECT_EQ(logged("messages", "raw model_type: ATTx"), 1);
    EXPECT_FALSE(carried().meter.isATT) << "logged, and not believed";
}

// ---- firmware

TEST_F(Km5Models, TheFirmwareIsTheNumberBehindTheEchoedCommand) {
    EXPECT_EQ(carried().meter.version, -1.0F);
    meter.say(version("1.86", "KM51"));
    EXPECT_TRUE(driver->get_version());
    EXPECT_EQ(carried().meter.version, 1.86F);
    EXPECT_EQ(connected(), "111111");
    EXPECT_EQ(logged("messages", "Start get version..."), 1);
    EXPECT_EQ(logged("messages", "Get version: 1.860000"), 1);
}

TEST_F(Km5Models, AFirmwareTextWithoutDigitsIsZero) {
    meter.say(version("v--.", "KM51"));
    EXPECT_TRUE(driver->get_version());
    EXPECT_EQ(carried().meter.version, 0.0F);
}

TEST_F(Km5Models, AFirmwareThatIsNotToldLeavesTheOldOne) {
    EXPECT_FALSE(driver->get_version());
    EXPECT_EQ(carried().meter.version, -1.0F);
    EXPECT_EQ(logged("messages", "Get version: -1.000000, FAIL"), 1);
    EXPECT_EQ(connected(), "000000");
}

// ---- EEPROM

TEST_F(Km5Models, AnEepromParameterIsAskedForByNumberAndLength) {
    meter.say(answer(14, {0x00, 0x00, 0x70, 0x42}));
    float value = 0.0F;
    EXPECT_TRUE(driver->read_EEPROM(70, 4, value));
    EXPECT_EQ(value, 60.0F) << "0x42700000";
    EXPECT_EQ(meter.heard[0], km5_frames::request(Address, 14, {70, 4}));
    EXPECT_EQ(connected(), "111111");
    EXPECT_EQ(logged("messages", "Start read EEPROM"), 1);
}

TEST_F(Km5Models, AFailedReadOfTheEepromLeavesWhatTheAnswerHeld) {
    ByteVector spoilt = answer(14, {0x00, 0x00, 0x70, 0x42});
    spoilt.back() ^= 1;
    meter.say_for_ever(spoilt);
    float value = 0.0F;
    EXPECT_FALSE(driver->read_EEPROM(70, 4, value));
    EXPECT_EQ(value, 60.0F);
}

}  // namespace
