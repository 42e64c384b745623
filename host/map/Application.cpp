#include "host/map/Application.h"

#include "util/Error.h"

#include <algorithm>
#include <utility>

namespace quorel::host::map {

void StatusBar::Message(std::int32_t pane, const std::string& text) {
    if (pane < 0) {
        throw Error(error_number::kHostInvalidIndex, "StatusBar",
                    "No status bar pane " + std::to_string(pane));
    }
    if (static_cast<std::size_t>(pane) >= m_panes.size()) {
        m_panes.resize(static_cast<std::size_t>(pane) + 1);
    }
    m_panes[static_cast<std::size_t>(pane)] = text;
    if (m_messageListener) {
        m_messageListener(pane, text);
    }
}

std::string StatusBar::MessageText(std::int32_t pane) const {
    if (pane < 0 || static_cast<std::size_t>(pane) >= m_panes.size()) {
        return "";
    }
    return m_panes[static_cast<std::size_t>(pane)];
}

void StatusBar::Progress(double fraction) {
    m_progress = fraction < 0 ? -1 : std::min(fraction, 1.0);
    if (m_progressListener) {
        m_progressListener(m_progress);
    }
}

Application::Application()
    : m_statusBar(std::make_shared<map::StatusBar>()), m_editor(std::make_shared<Editor>()) {
    NewDocument();
}

std::shared_ptr<IExtension> Application::FindExtensionByCLSID(const UID& uid) const {
    if (uid.Value == kEditorExtensionId || uid.Value == kEditorClassId) {
        return m_editor;
    }
    return nullptr;
}

std::shared_ptr<MxDocument> Application::NewDocument() {
    auto document = std::make_shared<MxDocument>();
    m_documents.push_back(document);
    const auto previous = std::exchange(m_document, document);
    if (previous) {
        previous->RaiseNewDocument();
        RaiseFocusLeft(*previous);
    }
    return document;
}

void Application::OpenDocument(std::shared_ptr<MxDocument> document) {
    if (!document) {
        throw Error(error_number::kObjectRequired, "Application", "No document to open");
    }
    if (std::find(m_documents.begin(), m_documents.end(), document) == m_documents.end()) {
        m_documents.push_back(document);
    }
    const auto previous = std::exchange(m_document, std::move(document));
    if (previous) {
        previous->RaiseBeforeCloseDocument();
        previous->RaiseCloseDocument();
        previous->RaiseOpenDocument();
        RaiseFocusLeft(*previous);
    }
}

void Application::RaiseFocusLeft(const MxDocument& previous) const {
    // The view now shows another map: whoever listens to the old focus map hears it.
    if (const auto map = std::dynamic_pointer_cast<Map>(previous.FocusMap());
        map && map != m_document->FocusMap()) {
        map->RaiseFocusMapChanged();
    }
}

void Application::SetActiveDocument(std::shared_ptr<MxDocument> document) {
    if (std::find(m_documents.begin(), m_documents.end(), document) == m_documents.end()) {
        throw Error(error_number::kHostInvalidIndex, "Application",
                    "The document is not open in the application");
    }
    m_document = std::move(document);
}

std::shared_ptr<Map> Application::FocusMapObject() const {
    return std::dynamic_pointer_cast<Map>(m_document->FocusMap());
}

} // namespace quorel::host::map
