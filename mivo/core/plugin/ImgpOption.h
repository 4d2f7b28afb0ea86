// The options of an image-processing request: typed values under integer identifiers.
#ifndef MIVO_CORE_PLUGIN_IMGPOPTION_H
#define MIVO_CORE_PLUGIN_IMGPOPTION_H

#include "mivo/core/types/ColorFormat.h"

#include <cstdint>
#include <initializer_list>
#include <string>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

namespace mivo::core {

// Alternatives 0, 6 and 8 are each one 32-bit word; integer readers accept the ones they
// name and reject the rest.
using ImgpOptionValue = std::variant<int32_t, bool, int64_t, float, double, std::string, uint32_t,
                                     std::vector<int32_t>, ColorFormat>;

enum ImgpOptionId : int32_t {
    IMGP_OPTION_OWN_FLIP = 1,          // present: flip mirrors the pixels itself
    IMGP_OPTION_FLIP_TYPE = 8,         // flip type, 0 defers to the output's "flip-type"
    IMGP_OPTION_PREFERRED_COLOR = 12,  // target colour format of a conversion
};

class ImgpOption {
  public:
    ImgpOption() = default;
    ImgpOption(std::initializer_list<std::pair<const int32_t, ImgpOptionValue>> entries)
        : entries_(entries) {}

    ImgpOption& set(int32_t id, ImgpOptionValue value) {
        entries_[id] = std::move(value);
        return *this;
    }
    ImgpOption& erase(int32_t id) {
        entries_.erase(id);
        return *this;
    }
    const ImgpOptionValue* find(int32_t id) const {
        auto it = entries_.find(id);
        return it == entries_.end() ? nullptr : &it->second;
    }
    bool contains(int32_t id) const { return entries_.count(id) != 0; }
    bool empty() const { return entries_.empty(); }

    int32_t flags = 0;

  private:
    std::unordered_map<int32_t, ImgpOptionValue> entries_;
};

// The 32-bit integer held in alternative A or B of an option value; any other alternative
// throws bad_variant_access.
template <size_t A, size_t B>
int32_t readInt32(const ImgpOptionValue& value) {
    if (value.index() == A) return static_cast<int32_t>(std::get<A>(value));
    return static_cast<int32_t>(std::get<B>(value));
}

}  // namespace mivo::core

#endif  // MIVO_CORE_PLUGIN_IMGPOPTION_H
