#include "mivo/core/types/MediaFormat.h"

#include "mivo/Def.h"
#include "mivo/core/types/ColorFormat.h"

#include <map>
#include <sstream>

namespace mivo {

std::unique_ptr<MutableShape> Shape::mutableCopy() const {
    return std::make_unique<MutableShape>(getRows(), getCols(), getChannels());
}

std::string Shape::toString() const {
    return format("[%d, %d, %d]", getRows(), getCols(), getChannels());
}

namespace {

const char* kindName(int kind) {
    switch (kind) {
        case MEDIA_KIND_IMAGE:
            return "image";
        case MEDIA_KIND_VIDEO:
            return "video";
        case MEDIA_KIND_AUDIO:
            return "audio";
        case MEDIA_KIND_METADATA:
            return "metadata";
        default:
            return "unknown";
    }
}

std::string extraText(const FormatExtraValue& value) {
    struct Printer {
        std::string operator()(bool v) const { return v ? "true" : "false"; }
        std::string operator()(const std::string& v) const { return "\"" + v + "\""; }
        std::string operator()(float v) const { return format("%g", static_cast<double>(v)); }
        std::string operator()(int v) const { return std::to_string(v); }
        std::string operator()(const std::vector<int>& v) const {
            std::string out = "[";
            for (size_t i = 0; i < v.size(); ++i) out += (i ? ", " : "") + std::to_string(v[i]);
            return out + "]";
        }
        std::string operator()(const std::shared_ptr<Shape>& v) const {
            return v ? v->toString() : "null";
        }
        std::string operator()(const android::Rect& r) const {
            return format("(%d, %d, %d, %d)", r.left, r.top, r.right, r.bottom);
        }
    };
    return std::visit(Printer{}, value);
}

class BasicMediaFormat final : public MutableMediaFormat {
  public:
    BasicMediaFormat() : shape_(std::make_shared<MutableShape>()) {}
    BasicMediaFormat(const BasicMediaFormat& other)
        : kind_(other.kind_),
          dataType_(other.dataType_),
          shape_(other.shape_->mutableCopy()),
          colorFormat_(other.colorFormat_),
          colorSpace_(other.colorSpace_),
          rotation_(other.rotation_),
          bytesPerPixel_(other.bytesPerPixel_),
          extras_(other.extras_) {}
    BasicMediaFormat& operator=(const BasicMediaFormat&) = delete;

    int getKind() const override { return kind_; }
    int getDataType() const override { return dataType_; }
    std::shared_ptr<Shape> getShape() const override { return shape_; }
    int getRows() const override { return shape_->getRows(); }
    int getCols() const override { return shape_->getCols(); }
    int getChannels() const override { return shape_->getChannels(); }
    int getColorFormat() const override { return colorFormat_; }
    int getColorSpace() const override { return colorSpace_; }
    int getRotation() const override { return rotation_; }
    float getBytesPerPixel() const override { return bytesPerPixel_; }

    bool containsExtra(const std::string& key) const override { return extras_.count(key) != 0; }
    std::optional<FormatExtraValue> getExtra(const std::string& key) const override {
        auto it = extras_.find(key);
        if (it == extras_.end()) return std::nullopt;
        return it->second;
    }
    std::vector<std::string> getExtraKeys() const override {
        std::vector<std::string> keys;
        for (const auto& entry : extras_) keys.push_back(entry.first);
        return keys;
    }

    std::unique_ptr<MediaFormat> freeze() const override {
        return std::make_unique<BasicMediaFormat>(*this);
    }
    std::unique_ptr<MutableMediaFormat> mutableCopy() const override {
        return std::make_unique<BasicMediaFormat>(*this);
    }

    std::string toString() const override {
        std::string extras;
        for (const auto& [key, value] : extras_) {
            extras += (extras.empty() ? "" : ", ") + key + "=" + extraText(value);
        }
        const char* color =
            isKnownColorFormat(colorFormat_) ? getColorFormatName(colorFormat_) : "unknown";
        return format(
            "{kind=%s, type=%d, shape=%s, color=%s(%d), space=%d, rotation=%d, "
            "bpp=%g, extras={%s}}",
            kindName(kind_), dataType_, shape_->toString().c_str(), color, colorFormat_,
            colorSpace_, rotation_, static_cast<double>(bytesPerPixel_), extras.c_str());
    }

    MutableMediaFormat& setShape(std::shared_ptr<MutableShape> shape) override {
        shape_ = shape ? std::move(shape) : std::make_shared<MutableShape>();
        return *this;
    }
    MutableMediaFormat& setRows(int rows) override {
        shape_->setRows(rows);
        return *this;
    }
    MutableMediaFormat& setCols(int cols) override {
        shape_->setCols(cols);
        return *this;
    }
    MutableMediaFormat& setColorFormat(int colorFormat) override {
        colorFormat_ = colorFormat;
        // The layout follows the colour format, so sizes stay right when a copy changes it.
        if (const int channels = getDefaultChannels(colorFormat)) {
            shape_->setChannels(channels);
            bytesPerPixel_ = getDefaultBytesPerPixel(colorFormat);
        }
        return *this;
    }
    MutableMediaFormat& setColorSpace(int colorSpace) override {
        colorSpace_ = colorSpace;
        return *this;
    }
    MutableMediaFormat& setExtra(const std::string& key, FormatExtraValue value) override {
        extras_[key] = std::move(value);
        return *this;
    }
    MutableMediaFormat& removeExtra(const std::string& key) override {
        extras_.erase(key);
        return *this;
    }
    MutableMediaFormat& setKind(int kind) override {
        kind_ = kind;
        return *this;
    }
    MutableMediaFormat& setDataType(int dataType) override {
        dataType_ = dataType;
        return *this;
    }
    MutableMediaFormat& setChannels(int channels) override {
        shape_->setChannels(channels);
        return *this;
    }
    MutableMediaFormat& setRotation(int degrees) override {
        rotation_ = degrees;
        return *this;
    }
    MutableMediaFormat& setBytesPerPixel(float bytesPerPixel) override {
        bytesPerPixel_ = bytesPerPixel;
        return *this;
    }

    using MutableMediaFormat::setShape;

  private:
    int kind_ = MEDIA_KIND_UNKNOWN;
    int dataType_ = DATA_TYPE_U8;
    std::shared_ptr<MutableShape> shape_;
    int colorFormat_ = COLOR_FORMAT_NONE;
    int colorSpace_ = COLOR_SPACE_UNKNOWN;
    int rotation_ = 0;
    float bytesPerPixel_ = 0.0f;
    std::map<std::string, FormatExtraValue> extras_;  // ordered, so descriptions are stable
};

}  // namespace

std::unique_ptr<MutableMediaFormat> MutableMediaFormat::create() {
    return std::make_unique<BasicMediaFormat>();
}

MutableMediaFormat& MutableMediaFormat::setShape(std::shared_ptr<Shape>&& shape) {
    std::shared_ptr<MutableShape> copy = shape->mutableCopy();
    return setShape(std::move(copy));
}

std::unique_ptr<MutableMediaFormat> makeImageFormat(int colorFormat, int cols, int rows,
                                                    int colorSpace) {
    auto f = MutableMediaFormat::create();
    f->setKind(MEDIA_KIND_IMAGE)
        .setDataType(DATA_TYPE_U8)
        .setColorFormat(colorFormat)
        .setColorSpace(colorSpace)
        .setCols(cols)
        .setRows(rows)
        .setChannels(getDefaultChannels(colorFormat))
        .setBytesPerPixel(getDefaultBytesPerPixel(colorFormat));
    return f;
}

}  // namespace mivo
