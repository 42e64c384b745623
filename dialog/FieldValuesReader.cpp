#include "dialog/FieldValuesReader.h"

#include <exception>

namespace quorel::dialog {

FieldValuesReader::FieldValuesReader() = default;

FieldValuesReader::~FieldValuesReader() {
    Stop();
}

void FieldValuesReader::Stop() {
    ++m_generation;
    m_busy = false;
    if (m_cancel) {
        *m_cancel = true;
    }
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

void FieldValuesReader::Start(std::shared_ptr<host::ICursor> cursor, std::string fieldName,
                              Done done) {
    Stop();
    m_busy = true;
    m_cancel = std::make_shared<std::atomic<bool>>(false);
    const std::uint64_t generation = m_generation;
    m_thread = std::thread([this, cursor = std::move(cursor), fieldName = std::move(fieldName),
                            cancel = m_cancel, generation, done = std::move(done)] {
        std::shared_ptr<FieldPreviewData> data;
        std::string error;
        try {
            auto values = criterion::ReadFieldValues(*cursor, fieldName,
                                                     [&cancel] { return cancel->load(); });
            if (!values) {
                return;
            }
            data = std::make_shared<FieldPreviewData>();
            data->histogram = criterion::MakeHistogram(*values, criterion::kPreviewHistogramBins);
            data->values = std::move(*values);
        } catch (const std::exception& failure) {
            error = failure.what();
        }
        // Handed to this object's thread; a result that a later Start or Stop has overtaken is
        // dropped there.
        QMetaObject::invokeMethod(
            this,
            [this, generation, done, data = std::shared_ptr<const FieldPreviewData>(data), error] {
                if (generation != m_generation) {
                    return;
                }
                m_busy = false;
                done(data, error);
            },
            Qt::QueuedConnection);
    });
}

} // namespace quorel::dialog
