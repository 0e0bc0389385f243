#include <utility>

#include <ombrix/core/checked_lookup_detail.h>
#include <ombrix/core/points/fields.h>

namespace ombrix::core {
namespace {

/// A new, empty field of the same element type and names.
std::shared_ptr<FieldType> emptyLike(const FieldType& field) {
    auto empty = field.makeEmpty();
    empty->name = field.name;
    empty->description = field.description;
    empty->components = field.components;
    return empty;
}

}  // namespace

const std::string FIELD_NORMAL = "normal";
const std::string FIELD_DISTANCE = "distance";
const std::string FIELD_AMBIENT = "ambient";

const std::array<std::pair<std::string, std::type_index>, 3> FIELD_TABLE = {{
    {FIELD_NORMAL, typeid(Vector3f)},
    {FIELD_DISTANCE, typeid(float)},
    {FIELD_AMBIENT, typeid(float)},
}};

std::size_t FieldContainer::hash::operator()(const std::string& name) const noexcept {
    std::uint64_t h = 0xcbf29ce484222325u;
    for (const char c : name) {
        h ^= static_cast<unsigned char>(c);
        h *= 0x100000001b3u;
    }
    return h;
}

template <class T>
std::pair<std::shared_ptr<FieldArray<T>>, bool> FieldContainer::addField(const std::string& name) {
    if (contains(name)) {
        return {nullptr, false};
    }
    auto field = std::make_shared<FieldArray<T>>();
    field->name = name;
    insert(name, field);
    return {std::move(field), true};
}

template OMBRIX_CORE_API std::pair<std::shared_ptr<FieldArray<float>>, bool> FieldContainer::addField<float>(
    const std::string&);
template OMBRIX_CORE_API std::pair<std::shared_ptr<FieldArray<Vector3f>>, bool>
FieldContainer::addField<Vector3f>(const std::string&);
template OMBRIX_CORE_API std::pair<std::shared_ptr<FieldArray<Vector3d>>, bool>
FieldContainer::addField<Vector3d>(const std::string&);

FieldContainer::FieldContainer(const FieldContainer& other)
    : fields_(other.fields_ ? std::make_unique<Map>(*other.fields_) : nullptr) {}

FieldContainer& FieldContainer::operator=(const FieldContainer& other) {
    return *this = FieldContainer(other);
}

const FieldContainer::Map& FieldContainer::fields() const {
    static const Map none;
    return fields_ ? *fields_ : none;
}

bool FieldContainer::contains(const std::string& name) const {
    return fields().count(name) != 0;
}

std::shared_ptr<FieldType> FieldContainer::get(const std::string& name) const {
    return detail::checkedLookup(fields(), name);
}

void FieldContainer::clear() {
    for (const auto& [name, field] : fields()) {
        field->clear();
    }
}

void FieldContainer::release() {
    for (const auto& [name, field] : fields()) {
        field->release();
    }
}

void FieldContainer::reserve(std::uint64_t n) {
    for (const auto& [name, field] : fields()) {
        field->reserve(n);
    }
}

void FieldContainer::resize(std::uint64_t n) {
    for (const auto& [name, field] : fields()) {
        field->resize(n);
    }
}

void FieldContainer::append(const FieldContainer& other) {
    for (const auto& [name, source] : other.fields()) {
        counterpart(name, *source).append(*source);
    }
}

void FieldContainer::append(const FieldContainer& other, std::uint64_t first, std::uint64_t last) {
    for (const auto& [name, source] : other.fields()) {
        if (!source->empty()) {
            counterpart(name, *source).appendRange(*source, first, last);
        } else {
            counterpart(name, *source);
        }
    }
}

void FieldContainer::append(const FieldContainer& other, const std::vector<std::uint64_t>& indices) {
    for (const auto& [name, source] : other.fields()) {
        if (!source->empty()) {
            counterpart(name, *source).appendSelected(*source, indices);
        } else {
            counterpart(name, *source);
        }
    }
}

void FieldContainer::assign(const FieldContainer& other) {
    clearUnshared(other);
    for (const auto& [name, source] : other.fields()) {
        if (!shares(name, source)) {
            counterpart(name, *source).append(*source);
        }
    }
}

void FieldContainer::assign(const FieldContainer& other, const std::vector<std::uint64_t>& indices) {
    if (this == &other) {
        for (const auto& [name, field] : fields()) {
            if (!field->empty()) {
                field->copySelected(*field, indices);
            }
        }
        return;
    }
    if (fields_) {
        for (auto& [name, field] : *fields_) {
            if (other.shares(name, field)) {
                field = emptyLike(*field);
            } else {
                field->clear();
            }
        }
    }
    append(other, indices);
}

void FieldContainer::detach(const std::string& name) {
    const auto found = fields().find(name);
    if (found == fields().end() || found->second.use_count() == 1) {
        return;
    }
    auto own = emptyLike(*found->second);
    own->copy(*found->second);
    insert(name, std::move(own));
}

void FieldContainer::clearUnshared(const FieldContainer& other) {
    for (const auto& [name, field] : fields()) {
        if (!other.shares(name, field)) {
            field->clear();
        }
    }
}

std::shared_ptr<FieldType>& FieldContainer::insert(const std::string& name,
                                                   std::shared_ptr<FieldType> field) {
    if (!fields_) {
        fields_ = std::make_unique<Map>(8);
    }
    return (*fields_)[name] = std::move(field);
}

FieldType& FieldContainer::counterpart(const std::string& name, const FieldType& source) {
    const auto found = fields().find(name);
    if (found != fields().end()) {
        return *found->second;
    }
    return *insert(name, emptyLike(source));
}

bool FieldContainer::shares(const std::string& name, const std::shared_ptr<FieldType>& field) const {
    const auto found = fields().find(name);
    return found != fields().end() && found->second == field;
}

}  // namespace ombrix::core
