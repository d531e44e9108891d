#pragma once
// What a user writes about one meter: "type=km5,serial=12345678,T1=71.25".

#include <map>
#include <string>

namespace sim {

/// Hands out each word once. Every failure is a std::invalid_argument with a text for the user.
class MeterWords {
  public:
    explicit MeterWords(const std::string& text);

    /// The value of a key, or `otherwise` when the user did not give it.
    std::string text(const std::string& key, const std::string& otherwise);
    long number(const std::string& key, long otherwise);
    double fraction(const std::string& key, double otherwise);

    /// What nobody has asked for yet.
    const std::map<std::string, std::string>& left() const { return words_; }
    /// Throws when a word is left that nobody understands.
    void finish() const;

  private:
    std::map<std::string, std::string> words_;
};

}  // namespace sim
