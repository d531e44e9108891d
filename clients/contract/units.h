#pragma once
// The units that a keeper states for what a meter's protocol leaves open: /etc/heatmeterd/units.conf.
//
//     [6f9619ff-8b86-d011-b42d-00c04fc964ff]
//     IE1 = Gcal
//     A1 = Gcal
//     [6f9619ff-8b86-d011-b42d-00c04fc964ff/2]
//     IE1 = MWh
//
// A section is a meter, or a system of it, a line the unit of an item or an archive by its name.

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "contract/items.h"

namespace contract {

constexpr const char* UnitsFile = "/etc/heatmeterd/units.conf";

/// What the file says. Of a wrong line nothing is taken.
class Units {
  public:
    Units() = default;
    explicit Units(const std::string& text);

    /// The unit of an item or an archive: the keeper's word for the system, for the meter, or the catalogue's. A short
    /// text in valid UTF-8 that acts on no terminal.
    std::string unit_of(const std::string& uuid, int system, std::string_view name,
                        std::string_view catalogue_unit) const;
    std::string unit_of(const std::string& uuid, int system, const Item& item) const;
    std::size_t size() const { return stated.size(); }
    /// "FILE:LINE: what is wrong", in the order of the lines.
    std::vector<std::string> problems() const;

  private:
    std::map<std::string, std::string> stated;  // by place and name
    std::multimap<int, std::string> wrong;      // by line
};

/// Those of the gateway, or of the copy of its files; none without the file.
Units read_units();

}  // namespace contract
