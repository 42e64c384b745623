#pragma once

// What every host application holds whatever its data: the documents with their maps, the
// status bar and the editor extension. A host adds its factory of objects (fields, calculator,
// workspaces) and its write lock.

#include "host/api/Host.h"
#include "host/map/Map.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace quorel::host::map {

class StatusBar final : public IStatusBar {
public:
    using MessageListener = std::function<void(std::int32_t pane, const std::string& text)>;
    using ProgressListener = std::function<void(double fraction)>;

    void Message(std::int32_t pane, const std::string& text) override;
    std::string MessageText(std::int32_t pane) const override;
    void Progress(double fraction) override;

    double CurrentProgress() const { return m_progress; }
    // Lets a front end (the command line, a window) show what the status bar shows.
    void SetMessageListener(MessageListener listener) { m_messageListener = std::move(listener); }
    void SetProgressListener(ProgressListener listener) {
        m_progressListener = std::move(listener);
    }

private:
    std::vector<std::string> m_panes;
    double m_progress = -1;
    MessageListener m_messageListener;
    ProgressListener m_progressListener;
};

// The editor extension, registered as "esriEditor.Editor". The host application (or a test)
// starts and stops editing.
class Editor final : public IEditor {
public:
    std::string Name() const override { return "Editor"; }
    std::int32_t EditState() const override { return m_state; }
    void SetEditState(std::int32_t state) { m_state = state; }

private:
    std::int32_t m_state = kEditStateNotEditing;
};

// Holds the documents (one active), the status bar and the editor extension.
class Application : public IApplication {
public:
    Application();

    std::shared_ptr<IMxDocument> Document() const override { return m_document; }
    std::shared_ptr<IStatusBar> StatusBar() const override { return m_statusBar; }
    // The editor, by its ProgID or its class id; nullptr for any other id.
    std::shared_ptr<IExtension> FindExtensionByCLSID(const UID& uid) const override;

    // A new document becomes the active one. The handlers of the document that was active
    // hear NewDocument, as for a document that is emptied and started afresh, then those of
    // its focus map hear FocusMapChanged.
    std::shared_ptr<MxDocument> NewDocument();
    // An opened (already filled) document becomes the active one; the handlers of the
    // document that was active hear BeforeCloseDocument, CloseDocument and OpenDocument, then
    // those of its focus map hear FocusMapChanged.
    void OpenDocument(std::shared_ptr<MxDocument> document);
    const std::vector<std::shared_ptr<MxDocument>>& Documents() const { return m_documents; }
    void SetActiveDocument(std::shared_ptr<MxDocument> document);
    const std::shared_ptr<MxDocument>& ActiveDocument() const { return m_document; }
    // The active document's focus map, when it is one of ours.
    std::shared_ptr<Map> FocusMapObject() const;
    const std::shared_ptr<Editor>& EditorExtension() const { return m_editor; }
    const std::shared_ptr<map::StatusBar>& Bar() const { return m_statusBar; }

private:
    void RaiseFocusLeft(const MxDocument& previous) const;

    std::vector<std::shared_ptr<MxDocument>> m_documents;
    std::shared_ptr<MxDocument> m_document;
    std::shared_ptr<map::StatusBar> m_statusBar;
    std::shared_ptr<Editor> m_editor;
};

} // namespace quorel::host::map
