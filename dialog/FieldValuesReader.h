#pragma once

#include "criterion/Preview.h"

#include <QObject>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace quorel::dialog {

// What the preview reads once per field: its values and their histogram.
struct FieldPreviewData {
    criterion::FieldValues values;
    criterion::Histogram histogram;
};

// Reads a field's values on a worker thread, one field at a time, so that typing never waits
// for a large table; the result reaches the reader's own thread.
class FieldValuesReader final : public QObject {
    Q_OBJECT

public:
    // The field's data, or a failure's description (data is null then).
    using Done =
        std::function<void(std::shared_ptr<const FieldPreviewData> data, const std::string& error)>;

    FieldValuesReader();
    ~FieldValuesReader() override;
    FieldValuesReader(const FieldValuesReader&) = delete;
    FieldValuesReader& operator=(const FieldValuesReader&) = delete;

    // Stops the read under way, then reads fieldName through cursor, which the caller made on
    // its own thread (making a cursor may touch the host's objects; walking it does not).
    void Start(std::shared_ptr<host::ICursor> cursor, std::string fieldName, Done done);
    // Stops the read under way and waits for its thread; its result is dropped.
    void Stop();
    bool Busy() const { return m_busy; }

private:
    std::thread m_thread;
    std::shared_ptr<std::atomic<bool>> m_cancel;
    std::uint64_t m_generation = 0;
    bool m_busy = false;
};

} // namespace quorel::dialog
