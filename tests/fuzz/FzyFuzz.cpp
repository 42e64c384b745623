// libFuzzer target: any bytes as a metadata file, through the decoder and the operations that
// read it. Whatever the bytes, every failure must end as a quorel::Error or a reported message.

#include "fzy/FzyDump.h"
#include "fzy/FzyFormat.h"
#include "fzy/IO_fzyext.h"
#include "host/memory/MemoryHost.h"
#include "tests/support/RecordingMessageUi.h"
#include "util/Error.h"
#include "util/MessageUi.h"
#include "util/TextSource.h"

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using namespace quorel;

class NoTexts final : public util::ITextSource {
public:
    std::string ResourceString(std::int16_t) const override { return {}; }
};

class NoWindow final : public fzy::IInfoWindow {
public:
    void ShowModal(const std::string&) override {}
};

const fs::path& ScratchFolder() {
    static const fs::path folder = [] {
        const fs::path base =
            fs::exists("/dev/shm") ? fs::path("/dev/shm") : fs::temp_directory_path();
        fs::path made = base / ("quorel_fzy_fuzz_" + std::to_string(getpid()));
        fs::create_directories(made);
        return made;
    }();
    return folder;
}

// The first entry's field name, so that the searches also take their matching paths.
std::string FirstName(std::span<const std::uint8_t> bytes) {
    try {
        fzy::MemorySource source(bytes);
        fzy::ByteReader reader(source, fzy::kHeaderSize);
        fzy::ReadFrame(reader);
        return reader.ReadText();
    } catch (const Error&) {
        return "FZY_A";
    }
}

void Operations(std::span<const std::uint8_t> bytes) {
    const fs::path& folder = ScratchFolder();
    {
        std::ofstream file(folder / "PARCELLES.fzy", std::ios::binary | std::ios::trunc);
        file.write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
    }

    auto app = std::make_shared<host::memory::MemoryApplication>();
    app->AddFeatureLayer(folder.string(), "PARCELLES", host::kGeometryPolygon,
                         {{"FID", host::kFieldTypeOID}, {"FZY_A", host::kFieldTypeDouble}});
    util::RecordingMessageUi ui;
    NoTexts texts;
    NoWindow window;
    fzy::IO_fzyext io(ui, texts, window, app, [] { return std::time_t{1709647629}; });

    const std::string name = FirstName(bytes);
    std::string shape = "PARCELLES.shp";
    try {
        io.fzy_io_open(folder.string(), shape);
    } catch (const Error&) {
        return;
    }
    io.fzy_io_numberinfo(name);
    io.fzy_io_recordinfo(name, "");
    io.fzy_io_numberinfo("FZY_A");
    if (bytes.size() >= 4) {
        try {
            const auto count = static_cast<std::int16_t>(bytes[0] | (bytes[1] << 8));
            const auto offset = static_cast<std::int16_t>(bytes[2] | (bytes[3] << 8));
            io.fzy_io_readtext(count, offset);
        } catch (const Error&) {
        }
    }
    io.fzy_io_valid(shape, folder.string());
    io.fzy_io_numberinfo(name);
    io.fzy_io_recordinfo(name, "");
    io.fzy_io_close();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::span<const std::uint8_t> bytes(data, size);
    try {
        std::ostringstream out;
        fzy::DumpFzy(bytes, out);
    } catch (const Error&) {
    }
    Operations(bytes);
    return 0;
}
