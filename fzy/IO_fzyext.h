#pragma once

// The operations on the metadata file beside a shapefile, and their state: the one open file,
// its status, the working copies of the header counts and the metadata window's text.

#include "fzy/FzyFormat.h"
#include "host/api/Host.h"
#include "util/MessageUi.h"
#include "util/TextSource.h"

#include <cstdint>
#include <ctime>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace quorel::fzy {

// The metadata window frm_display_fzy, shown modally with its text; returns when closed.
class IInfoWindow {
public:
    virtual ~IInfoWindow() = default;
    virtual void ShowModal(const std::string& text) = 0;
};

class IO_fzyext {
public:
    using Clock = std::function<std::time_t()>;

    IO_fzyext(
        util::IMessageUi& ui, const util::ITextSource& texts, IInfoWindow& window,
        std::shared_ptr<host::IApplication> app = nullptr,
        Clock clock = [] { return std::time(nullptr); });
    ~IO_fzyext();
    IO_fzyext(const IO_fzyext&) = delete;
    IO_fzyext& operator=(const IO_fzyext&) = delete;

    // The host application (g_app), set once the command is created.
    void SetApplication(std::shared_ptr<host::IApplication> app) { m_app = std::move(app); }
    // The decimal mark of the descriptions' numbers; the user's (util::DecimalSeparator) unless
    // set here.
    void SetDecimalMark(char mark) { m_decimalMark = mark; }

    // Opens (creating when missing) folder/name.fzy; removes every ".shp" from name, and the
    // extension in any letter case.
    std::int16_t fzy_io_open(const std::string& folder, std::string& name);
    // Opens folder/name.fzy for reading only, as showing what it records needs: the file is
    // neither made nor changed. Changes name as fzy_io_open does. False, with nothing opened,
    // when there is no such file or it holds no entry; a missing folder throws.
    bool fzy_io_openread(const std::string& folder, std::string& name);
    std::int16_t fzy_io_close();
    std::string fzy_io_readtext(std::int16_t count, std::int16_t offset);
    std::int16_t fzy_io_writenumber(const std::string& fieldName, const std::string& aliasName,
                                    std::int16_t kind, double a, double b, double c, double d,
                                    const std::string& folder, const std::string& shapeName);
    bool fzy_io_numberinfo(const std::string& fieldName);
    bool fzy_io_recordinfo(const std::string& fieldName, const std::string& ignored);
    bool fzy_io_check(const std::string& fieldName, const std::string& layerName);
    // 1, or nothing after an error.
    std::optional<int> fzy_io_valid(const std::string& shapeName, const std::string& folder);
    void fzy_io_compressfzy(std::int16_t handle, const std::string& shapeName,
                            const std::string& folder);
    void fzy_io_showinfo();

    // Whether a number entry with these texts can be appended to the open file within its size
    // and count limits: asked before anything is changed, so that a full file refuses the run
    // rather than failing it half-way.
    bool NumberEntryFits(const std::string& fieldName, const std::string& aliasName,
                         const std::string& folder, const std::string& shapeName) const;

    std::int16_t FileNumber() const { return m_fileNumber; }
    // Where the open file lies.
    const std::string& OpenFilePath() const;
    const std::string& FileStatus() const { return m_fileStatus; }
    std::int16_t RecordCount() const { return m_recordCount; }
    std::int16_t NumberCount() const { return m_numberCount; }
    std::int16_t DeletedCount() const { return m_deletedCount; }
    std::int16_t NumberFound() const { return m_numberFound; }

    // The text of Txt_infofield; nothing while the window does not exist.
    const std::optional<std::string>& InfoText() const { return m_infoText; }
    void SetInfoText(const std::string& text) { m_infoText = text; }

    // The decimal mark of the numbers in its descriptions.
    char DecimalMark() const;

private:
    class OpenFile;

    OpenFile& File(std::int16_t handle) const;
    std::int16_t FreeFile() const;
    void ShowLocalError(const std::exception& error, const char* label, int step) noexcept;
    std::string Text(std::int16_t id) const { return m_texts.ResourceString(id); }
    std::string NumberDescription(const NumberEntry& entry) const;
    std::string RecordDescription(const RecordEntry& entry) const;

    util::IMessageUi& m_ui;
    const util::ITextSource& m_texts;
    IInfoWindow& m_window;
    std::shared_ptr<host::IApplication> m_app;
    Clock m_clock;
    std::optional<char> m_decimalMark;

    std::map<std::int16_t, std::unique_ptr<OpenFile>> m_files;
    std::int16_t m_fileNumber = 0;
    std::string m_fileStatus;
    std::int16_t m_recordCount = 0;
    std::int16_t m_numberCount = 0;
    std::int16_t m_deletedCount = 0;
    std::int16_t m_numberFound = 0;
    std::optional<std::string> m_infoText;
};

// The metadata file of a shapefile: folder/name.fzy, every ".shp" removed from name, as
// fzy_io_open names it.
std::string MetadataFilePath(const std::string& folder, const std::string& name);
// Whether this process may write the metadata file at path; true when it does not exist yet.
bool MetadataFileWritable(const std::string& path);

// Joins a folder and a file name with the separator the folder text itself uses: files written
// on Windows hold folders with backslashes and are shown as they are.
std::string JoinFolder(const std::string& folder, const std::string& name);

// The metadata window's description of a number entry (texts 147, 148, 154, 152 and 156), its
// creation time already as text; numbers with the decimal mark given.
std::string FormatNumberDescription(const util::ITextSource& texts, char decimalMark,
                                    const NumberEntry& entry, const std::string& created);
// The same description of a criterion record a database keeps: its column as field and alias
// name, the database and the table as folder and shape, its time as recorded.
std::string FormatNumberDescription(const util::ITextSource& texts, char decimalMark,
                                    const host::CriterionRecord& record,
                                    const std::string& database);

} // namespace quorel::fzy
