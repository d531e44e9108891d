#include "care/start_log.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

namespace {

class StartLogTest : public testing::Test {
  protected:
    ~StartLogTest() override {
        std::filesystem::remove(path);
        std::filesystem::remove(path + ".old");
    }

    static std::string text_of(const std::string& file) {
        std::ifstream stream(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    const std::string path = testing::TempDir() + "start-log." + std::to_string(::getpid());
    StartLog log{path};
};

TEST_F(StartLogTest, KeepsWhatComesAndTheStartBefore) {
    log.begin();
    log.add("one\n");
    EXPECT_EQ(text_of(path), "one\n");
    log.end("over");
    log.begin();
    log.add("two\n");
    EXPECT_EQ(text_of(path), "two\n");
    EXPECT_EQ(text_of(path + ".old"), "one\nover\n");
}

TEST_F(StartLogTest, KeepsTheBeginningAndTheLastWordsOfATalker) {
    log.begin();
    log.add("begin\n");
    for (int i = 0; i < 100000; ++i) log.add("0123456789");
    EXPECT_EQ(text_of(path).size(), StartLog::BeginningBytes);
    log.add("\nlast\n");
    log.end("over");
    const std::string text = text_of(path);
    EXPECT_TRUE(text.starts_with("begin\n0123"));
    EXPECT_TRUE(text.ends_with("6789\nlast\nover\n"));
    EXPECT_EQ(text.size(), StartLog::BeginningBytes + StartLog::LastBytes + std::string("\n[...]\nover\n").size());
}

TEST_F(StartLogTest, LosesNothingOfWhatIsALittleTooLong) {
    log.begin();
    const std::string words(StartLog::BeginningBytes + 10, 'x');
    log.add(words);
    log.end("");
    EXPECT_EQ(text_of(path), words + "\n");
}

TEST(StartLog, DoesWithoutAFile) {
    StartLog log("/no/such/folder/log");
    log.begin();
    log.add("text");
    log.end("over");
}

}  // namespace
