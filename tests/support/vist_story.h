#pragma once
// What a VIST meter's log tells of a run, line by line, without what the link says of each request.

#include <string>
#include <vector>

#include <gtest/gtest.h>

using VistStory = std::vector<std::string>;

/// The lines of a log without those of the link and without the bytes of packets.
VistStory vist_story(const VistStory& log);

/// Whether a story is the awaited one to its end. Of an awaited line that ends in "*" only what stands in front of it
/// counts.
::testing::AssertionResult is_story(const VistStory& story, const VistStory& awaited);

/// How many bytes each dump of a log has.
std::vector<std::size_t> vist_dumps(const VistStory& log);

/// These stories, one behind the other.
VistStory joined(const std::vector<VistStory>& parts);
