#pragma once
// The words of a command line, as main() gets them.

#include <string>
#include <vector>

class Words {
  public:
    explicit Words(const std::vector<std::string>& words) : texts_{"heatmeterd"} {
        texts_.insert(texts_.end(), words.begin(), words.end());
        for (std::string& text : texts_) pointers_.push_back(text.data());
        pointers_.push_back(nullptr);
    }
    Words(const Words&) = delete;
    Words& operator=(const Words&) = delete;

    int count() const { return static_cast<int>(texts_.size()); }
    char** values() { return pointers_.data(); }

  private:
    std::vector<std::string> texts_;
    std::vector<char*> pointers_;
};
