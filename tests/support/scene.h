#pragma once
// The scene of a test: a private folder that stands for "/", a time zone, a simulated machine that is installed as the
// gateway as long as the scene lives, and a configuration service that the machine asks. Paths are those of the gateway
// ("/tmp/...") everywhere.

#include <optional>
#include <string>
#include <vector>

#include "config_service.h"
#include "sim_gateway.h"

class Scene {
    // Built first and removed last: the folder and the time zone that the members below start from.
    class Ground {
      public:
        explicit Ground(const std::string& time_zone);
        ~Ground();
        Ground(const Ground&) = delete;
        Ground& operator=(const Ground&) = delete;

        std::string root;

      private:
        std::optional<std::string> earlier_zone_;
    };
    Ground ground_;

  public:
    /// `start` is local time in `time_zone` (a TZ text), "YYYY-MM-DD hh:mm[:ss]". The folder holds /tmp, /mnt/storage
    /// and the two LED files.
    explicit Scene(const std::string& start = "2024-03-02 10:00:00", const std::string& time_zone = "UTC");
    ~Scene();
    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;

    sim::SimGateway gateway;
    sim::ConfigService service;

    const std::string& root() const { return ground_.root; }
    /// Where a path of the gateway lies for the test itself.
    std::string real_path(const std::string& path) const { return ground_.root + path; }

    /// The whole text of a file; nothing when it is missing.
    std::optional<std::string> file(const std::string& path) const;
    /// /tmp/<uuid>/<n>/tc_items/<name>
    std::optional<std::string> item(const std::string& uuid, int n, const std::string& name) const;
    /// /mnt/storage/<uuid>/<n>/<directory>/<name>
    std::optional<std::string> archive(const std::string& uuid, int n, const std::string& name,
                                       const std::string& directory = "tc_archives") const;
    bool exists(const std::string& path) const;
    /// The names in a directory, sorted; empty when it is missing.
    std::vector<std::string> list(const std::string& path) const;

    /// Writes a whole file, making the directories above it; what lies under /mnt/storage counts as durable.
    void write(const std::string& path, const std::string& text);
    void touch(const std::string& path) { write(path, ""); }
    void remove(const std::string& path);

    /// The directories that the daemon makes for a uuid at start, and its `default` link.
    void make_tree(const std::string& uuid);
    /// What a restart of the gateway does to /tmp: everything below it goes.
    void clear_tmp();
};
