#pragma once

// Events a host raises to connected handlers, and the sources that deliver them. A document
// that delivers document events also implements IDocumentEventSource; a map that delivers view
// events implements IMapEventSource (found with dynamic_cast from IMxDocument and IMap).

#include "host/api/Host.h"

#include <algorithm>
#include <vector>

namespace quorel::host {

class IDocumentEvents {
public:
    virtual ~IDocumentEvents() = default;
    virtual bool ActiveViewChanged() = 0;
    virtual bool MapsChanged() = 0;
    virtual bool BeforeCloseDocument() = 0;
    virtual bool CloseDocument() = 0;
    virtual bool NewDocument() = 0;
    virtual bool OpenDocument() = 0;
};

class IMapActiveViewEvents {
public:
    virtual ~IMapActiveViewEvents() = default;
    virtual void FocusMapChanged() = 0;
    virtual void ContentsChanged() = 0;
    virtual void ContentsCleared() = 0;
    virtual void ItemAdded(const std::shared_ptr<ILayer>& item) = 0;
    virtual void ItemDeleted(const std::shared_ptr<ILayer>& item) = 0;
    virtual void ItemReordered(const std::shared_ptr<ILayer>& item, std::int32_t toIndex) = 0;
    virtual void SelectionChanged() = 0;
    virtual void ViewRefreshed() = 0;
    virtual void AfterDraw() = 0;
    virtual void AfterItemDraw() = 0;
    virtual void SpatialReferenceChanged() = 0;
};

class IDocumentEventSource {
public:
    virtual ~IDocumentEventSource() = default;
    virtual void Advise(IDocumentEvents* handler) = 0;
    virtual void Unadvise(IDocumentEvents* handler) = 0;
};

class IMapEventSource {
public:
    virtual ~IMapEventSource() = default;
    virtual void Advise(IMapActiveViewEvents* handler) = 0;
    virtual void Unadvise(IMapActiveViewEvents* handler) = 0;
    // The one boolean display property of the map's view that a command may set.
    virtual void SetViewActive(bool active) = 0;
    virtual bool ViewActive() const = 0;
};

} // namespace quorel::host

namespace quorel::host {

// The handlers connected to one source, for hosts to raise events to. Raising walks a copy, so a
// handler may connect or disconnect handlers while it runs.
template <typename Handler> class EventHandlers {
public:
    void Advise(Handler* handler) {
        for (Handler* h : m_handlers) {
            if (h == handler) {
                return;
            }
        }
        m_handlers.push_back(handler);
    }
    void Unadvise(Handler* handler) { std::erase(m_handlers, handler); }
    std::size_t Count() const { return m_handlers.size(); }
    bool Contains(const Handler* handler) const {
        return std::find(m_handlers.begin(), m_handlers.end(), handler) != m_handlers.end();
    }
    template <typename Call> void Raise(Call call) const {
        const auto handlers = m_handlers;
        for (Handler* h : handlers) {
            if (Contains(h)) {
                call(*h);
            }
        }
    }

private:
    std::vector<Handler*> m_handlers;
};

} // namespace quorel::host
