#pragma once

#include "host/api/Host.h"

#include <cstdint>
#include <string>
#include <utility>

namespace quorel::host::map {

// A field as every host hands it out, and a new one as it is filled in before it is added. The
// alias is the name until one is set.
class Field final : public IFieldEdit {
public:
    Field() = default;
    Field(std::string name, std::int32_t type, std::string alias = {})
        : m_name(std::move(name)), m_alias(std::move(alias)), m_type(type) {}

    std::string Name() const override { return m_name; }
    std::string AliasName() const override { return m_alias.empty() ? m_name : m_alias; }
    std::int32_t Type() const override { return m_type; }
    void SetName(const std::string& name) override { m_name = name; }
    void SetType(std::int32_t type) override { m_type = type; }
    void SetAliasName(const std::string& alias) override { m_alias = alias; }

private:
    std::string m_name;
    std::string m_alias;
    std::int32_t m_type = kFieldTypeDouble;
};

} // namespace quorel::host::map
