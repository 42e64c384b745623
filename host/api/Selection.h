#pragma once

// The features of a layer that the user or a command has picked out, by object id, and the
// handlers that hear it change. A feature layer that keeps a selection also implements
// IFeatureSelection (found with dynamic_cast from IFeatureLayer, see SelectionOf).
//
// A feature's object id is the value of its class's object-id field (the first field of type
// kFieldTypeOID: the shapefile host's "FID", the record number) or, for a class that lists no
// such field, its 0-based position among a cursor's rows. ObjectIdReader reads them.

#include "host/api/Events.h"
#include "host/api/Host.h"

#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

namespace quorel::host {

class ISelectionEvents {
public:
    virtual ~ISelectionEvents() = default;
    // The layer's selection now holds other features.
    virtual void SelectionChanged() = 0;
};

class IFeatureSelection {
public:
    virtual ~IFeatureSelection() = default;
    // Replaces the selection by these object ids (in any order, repeats counted once). Ids that
    // name no feature select nothing. Handlers hear SelectionChanged only when the set differs
    // from the one before.
    virtual void SelectFeatures(std::vector<std::int64_t> objectIds) = 0;
    // Empties the selection; as SelectFeatures({}).
    virtual void Clear() = 0;
    // The selected object ids in ascending order, each once.
    virtual const std::vector<std::int64_t>& SelectedIds() const = 0;
    virtual bool IsSelected(std::int64_t objectId) const = 0;
    virtual void Advise(ISelectionEvents* handler) = 0;
    virtual void Unadvise(ISelectionEvents* handler) = 0;
};

// The selection a layer keeps, or nullptr for a layer that keeps none.
inline IFeatureSelection* SelectionOf(ILayer* layer) {
    return dynamic_cast<IFeatureSelection*>(layer);
}
template <typename Layer> IFeatureSelection* SelectionOf(const std::shared_ptr<Layer>& layer) {
    return SelectionOf(static_cast<ILayer*>(layer.get()));
}

// Reads each row's object id from one cursor, row after row: Next is asked once per row, in the
// cursor's order.
class ObjectIdReader {
public:
    explicit ObjectIdReader(const IFields& fields) {
        for (std::int32_t i = 0; i < fields.FieldCount(); ++i) {
            if (fields.Field(i)->Type() == kFieldTypeOID) {
                m_field = i;
                break;
            }
        }
    }

    std::int64_t Next(const IRow& row) {
        const std::int64_t position = m_position++;
        if (m_field < 0) {
            return position;
        }
        const Value value = row.GetValue(m_field);
        const double* number = std::get_if<double>(&value);
        return number != nullptr && std::isfinite(*number) ? static_cast<std::int64_t>(*number)
                                                           : position;
    }

private:
    std::int32_t m_field = -1;
    std::int64_t m_position = 0;
};

} // namespace quorel::host
