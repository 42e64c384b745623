#pragma once

#include "fzy/FzyFormat.h"
#include "fzy/IO_fzyext.h"
#include "tests/fzy/FzyFiles.h"
#include "tests/support/RecordingMessageUi.h"
#include "tests/support/ScratchFolder.h"
#include "tests/support/TextLines.h"
#include "util/MessageUi.h"
#include "util/TextSource.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>
#include <vector>

namespace quorel::fzy::test {

namespace fs = std::filesystem;

// Every text id reads "T" and the id, so that descriptions show which text went where.
class IdTextSource final : public util::ITextSource {
public:
    std::string ResourceString(std::int16_t id) const override { return "T" + std::to_string(id); }
};

class RecordingInfoWindow final : public IInfoWindow {
public:
    void ShowModal(const std::string& text) override { shown.push_back(text); }
    std::vector<std::string> shown;
};

using quorel::test::SplitLines;

inline Bytes ReadBytes(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void WriteBytes(const fs::path& path, const Bytes& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
}

// A scratch folder and a fresh component state per test.
class FzyFixture : public testing::Test {
protected:
    void SetUp() override { m_io.SetDecimalMark('.'); }

    std::string Folder() const { return m_folder.string(); }
    fs::path FzyPath(const std::string& name = "PARCELLES") const {
        return m_folder / (name + ".fzy");
    }

    // Opens PARCELLES.shp's metadata file.
    void Open(const std::string& name = "PARCELLES.shp") {
        std::string shape = name;
        m_io.fzy_io_open(Folder(), shape);
    }

    quorel::test::ScratchFolder m_scratch;
    fs::path m_folder{m_scratch.Path()};
    util::RecordingMessageUi m_ui;
    IdTextSource m_texts;
    RecordingInfoWindow m_window;
    std::time_t m_now = 1709647629; // a fixed moment
    IO_fzyext m_io{m_ui, m_texts, m_window, nullptr, [this] { return m_now; }};
};

} // namespace quorel::fzy::test
