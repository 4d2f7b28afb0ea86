// Halves a raw NV12 picture (to even sides) with the installed plugin:
// downstream <in.nv12> <width> <height> <out.nv12>.
#include <mivo/core/buffer/OutputSlot.h>
#include <mivo/ext/plugin/VexaPlugin.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

int main(int argc, char** argv) {
    using namespace mivo;
    if (argc != 5) return 2;
    const int cols = std::atoi(argv[2]), rows = std::atoi(argv[3]);
    std::ifstream file(argv[1], std::ios::binary);
    std::vector<unsigned char> pixels{std::istreambuf_iterator<char>(file), {}};
    if (pixels.size() != static_cast<size_t>(cols * rows * 3 / 2)) return 3;

    std::shared_ptr<core::MediaBuffer> in = core::detail::CpuMediaBuffer::wrap(
        makeImageFormat(COLOR_FORMAT_NV12, cols, rows)->freeze(), pixels.data());
    const int outCols = cols / 2 & ~1, outRows = rows / 2 & ~1;
    auto slot =
        core::OutputSlot::create(makeImageFormat(COLOR_FORMAT_NV12, outCols, outRows)->freeze());
    std::shared_ptr<core::MediaBuffer> out = slot;
    ext::VexaPlugin plugin(std::make_shared<core::ImgpOption>(), {ext::Operation::Rsz});
    if (plugin(in, out) != 0 || !slot->get()) return 4;

    const auto* data = static_cast<const unsigned char*>(slot->getDataPtr());
    std::ofstream(argv[4], std::ios::binary)
        .write(reinterpret_cast<const char*>(data), outCols * outRows * 3 / 2);
    std::printf("%s\n", slot->toString().c_str());
    return 0;
}
