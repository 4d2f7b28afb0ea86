// The shape of a picture: rows, columns and channels.
#ifndef MIVO_CORE_TYPES_SHAPE_H
#define MIVO_CORE_TYPES_SHAPE_H

#include "mivo/Def.h"

#include <memory>
#include <string>

namespace mivo {

class MutableShape;

class MIVO_EXPORT Shape {
  public:
    Shape() = default;
    Shape(int rows, int cols, int channels = 1) : rows_(rows), cols_(cols), channels_(channels) {}
    virtual ~Shape() = default;

    virtual int getRows() const { return rows_; }
    virtual int getCols() const { return cols_; }
    virtual int getChannels() const { return channels_; }
    virtual std::unique_ptr<MutableShape> mutableCopy() const;
    virtual std::string toString() const;

  protected:
    int rows_ = 0;
    int cols_ = 0;
    int channels_ = 1;
};

class MIVO_EXPORT MutableShape : public Shape {
  public:
    using Shape::Shape;

    MutableShape& setRows(int rows) {
        rows_ = rows;
        return *this;
    }
    MutableShape& setCols(int cols) {
        cols_ = cols;
        return *this;
    }
    MutableShape& setChannels(int channels) {
        channels_ = channels;
        return *this;
    }
};

}  // namespace mivo

#endif  // MIVO_CORE_TYPES_SHAPE_H
