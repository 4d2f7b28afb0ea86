// Allocation options of a buffer.
#ifndef MIVO_CORE_BUFFER_BUFFEROPTION_H
#define MIVO_CORE_BUFFER_BUFFEROPTION_H

#include <cstdint>
#include <string>
#include <unordered_map>
#include <variant>

namespace mivo::core::detail {

// Alternatives 0 and 2 are both read as the 32-bit word of an integer option.
using BufferOptionValue = std::variant<int32_t, bool, uint32_t, int64_t, std::string>;

class BufferOption {
  public:
    static constexpr int32_t kUsage = 1;

    BufferOption& set(int32_t key, BufferOptionValue value) {
        values_[key] = std::move(value);
        return *this;
    }
    const BufferOptionValue* find(int32_t key) const {
        auto it = values_.find(key);
        return it == values_.end() ? nullptr : &it->second;
    }
    bool empty() const { return values_.empty(); }

  private:
    std::unordered_map<int32_t, BufferOptionValue> values_;
};

}  // namespace mivo::core::detail

#endif  // MIVO_CORE_BUFFER_BUFFEROPTION_H
