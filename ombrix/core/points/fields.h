#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <typeindex>
#include <unordered_map>
#include <utility>
#include <vector>

#include <ombrix/core/core_export.h>
#include <ombrix/core/types.h>

namespace ombrix::core {

/// Names of the predefined fields: "normal" holds `Vector3f`, "distance" and "ambient" hold float.
OMBRIX_CORE_API extern const std::string FIELD_NORMAL;
OMBRIX_CORE_API extern const std::string FIELD_DISTANCE;
OMBRIX_CORE_API extern const std::string FIELD_AMBIENT;

/// The predefined fields in the order of `Point`'s attributes: name and element type.
OMBRIX_CORE_API extern const std::array<std::pair<std::string, std::type_index>, 3> FIELD_TABLE;

/// A named per-point attribute without its element type: one element per point of the cloud.
///
/// Fields live in `std::shared_ptr`s made by `std::make_shared` of the concrete `FieldArray<T>`, which is
/// what destroys them: there is no virtual destructor. Operations that take another field do nothing when
/// its element type is another one; the other field may be this one.
class OMBRIX_CORE_API FieldType : public std::enable_shared_from_this<FieldType> {
public:
    std::string name;              ///< equal to the key in the container
    std::string description;       ///< free text
    std::uint32_t components = 0;  ///< scalars per element: 1 for float, 3 for vectors at first

    /// Run-time type name of the element type, as the platform spells it.
    [[nodiscard]] virtual std::string elementTypeName() const = 0;
    /// Identity of the element type: equal for fields that can be appended to each other.
    [[nodiscard]] virtual std::type_index elementType() const = 0;
    /// Code of the scalar component: 9 for 32-bit, 10 for 64-bit float.
    [[nodiscard]] virtual int typeCode() const = 0;
    /// Name of the scalar component: "FLOAT32" or "FLOAT64".
    [[nodiscard]] virtual std::string typeName() const = 0;
    /// First element; may be null when there is none.
    [[nodiscard]] virtual const void* dataPointer() const = 0;
    [[nodiscard]] virtual void* dataPointer() = 0;
    /// Length 0, storage kept.
    virtual void clear() = 0;
    /// Length 0, storage freed.
    virtual void release() = 0;
    /// Capacity for at least n elements.
    virtual void reserve(std::uint64_t n) = 0;
    /// Length n; new elements are zero.
    virtual void resize(std::uint64_t n) = 0;
    /// Number of elements.
    [[nodiscard]] virtual std::uint64_t size() const = 0;
    /// Number of elements times the size of one.
    [[nodiscard]] virtual std::uint64_t byteSize() const = 0;
    /// Length of as many whole elements as fit into n bytes.
    virtual void resizeBytes(std::uint64_t n) = 0;
    /// Whether there is no element.
    [[nodiscard]] virtual bool empty() const = 0;
    /// Becomes the listed elements of `other`, in list order, with its component count.
    virtual void copySelected(const FieldType& other, const std::vector<std::uint64_t>& indices) = 0;
    /// Becomes a copy of `other`'s elements, with its component count.
    virtual void copy(const FieldType& other) = 0;
    /// Appends the listed elements of `other`, in list order.
    virtual void appendSelected(const FieldType& other, const std::vector<std::uint64_t>& indices) = 0;
    /// Appends the elements first to last of `other`, both ends included.
    virtual void appendRange(const FieldType& other, std::uint64_t first, std::uint64_t last) = 0;
    /// Appends all elements of `other`.
    virtual void append(const FieldType& other) = 0;
    /// A new, empty field of the same element type, without name and description.
    [[nodiscard]] virtual std::shared_ptr<FieldType> makeEmpty() const = 0;
};

/// A field of element type T: float, `Vector3f` or `Vector3d`.
template <class T>
class OMBRIX_CORE_API FieldArray : public FieldType {
public:
    /// An empty field without name and description.
    FieldArray() { components = sizeof(T) == sizeof(float) ? 1 : 3; }

    /// The elements, one per point.
    [[nodiscard]] std::vector<T>& data() { return data_; }
    [[nodiscard]] const std::vector<T>& data() const { return data_; }

    [[nodiscard]] std::string elementTypeName() const override;
    [[nodiscard]] std::type_index elementType() const override;
    [[nodiscard]] int typeCode() const override;
    [[nodiscard]] std::string typeName() const override;
    [[nodiscard]] const void* dataPointer() const override;
    [[nodiscard]] void* dataPointer() override;
    void clear() override;
    void release() override;
    void reserve(std::uint64_t n) override;
    void resize(std::uint64_t n) override;
    [[nodiscard]] std::uint64_t size() const override;
    [[nodiscard]] std::uint64_t byteSize() const override;
    void resizeBytes(std::uint64_t n) override;
    [[nodiscard]] bool empty() const override;
    void copySelected(const FieldType& other, const std::vector<std::uint64_t>& indices) override;
    void copy(const FieldType& other) override;
    void appendSelected(const FieldType& other, const std::vector<std::uint64_t>& indices) override;
    void appendRange(const FieldType& other, std::uint64_t first, std::uint64_t last) override;
    void append(const FieldType& other) override;
    [[nodiscard]] std::shared_ptr<FieldType> makeEmpty() const override;

private:
    std::vector<T> data_;
};

extern template class OMBRIX_CORE_API FieldArray<float>;
extern template class OMBRIX_CORE_API FieldArray<Vector3f>;
extern template class OMBRIX_CORE_API FieldArray<Vector3d>;

/// Fields by name. Copies of a container share the fields; moving leaves the source empty.
///
/// Lookups of a name that is not registered throw `std::out_of_range`
/// ("invalid unordered_map<K, T> key").
class OMBRIX_CORE_API FieldContainer {
public:
    FieldContainer() = default;
    /// Shares the other container's fields.
    FieldContainer(const FieldContainer& other);
    FieldContainer(FieldContainer&&) noexcept = default;
    /// Shares the other container's fields.
    FieldContainer& operator=(const FieldContainer& other);
    FieldContainer& operator=(FieldContainer&&) noexcept = default;
    ~FieldContainer() = default;

    /// Hash of a name: 64-bit FNV-1a over its bytes.
    /// Source: Fowler, Noll, Vo, "The FNV Non-Cryptographic Hash Algorithm", IETF draft.
    struct OMBRIX_CORE_API hash {
        /// The hash of a name.
        [[nodiscard]] std::size_t operator()(const std::string& name) const noexcept;
    };
    /// Fields by name, as a container holds them.
    using Map = std::unordered_map<std::string, std::shared_ptr<FieldType>, hash>;
    using const_iterator = Map::const_iterator;

    /// Registers a new, empty field for T = float, `Vector3f` or `Vector3d`; it is not sized to the cloud.
    ///
    /// @return  the field and true; an empty pointer and false when the name is taken already (look the
    ///          existing field up by name).
    template <class T>
    std::pair<std::shared_ptr<FieldArray<T>>, bool> addField(const std::string& name);

    /// Whether a field of that name is registered.
    [[nodiscard]] bool contains(const std::string& name) const;

    /// The field of that name.
    [[nodiscard]] std::shared_ptr<FieldType> get(const std::string& name) const;

    /// The field of that name; empty when its element type is not T.
    template <class T>
    [[nodiscard]] std::shared_ptr<FieldArray<T>> get(const std::string& name) const {
        return std::dynamic_pointer_cast<FieldArray<T>>(get(name));
    }

    /// The same four operations on every field; fields stay registered.
    void clear();
    void release();
    void reserve(std::uint64_t n);
    void resize(std::uint64_t n);

    /// Appends the elements of every field of `other`: all, first to last (both included), or the listed
    /// ones. Fields missing here are registered first; a field whose element type differs is skipped.
    void append(const FieldContainer& other);
    void append(const FieldContainer& other, std::uint64_t first, std::uint64_t last);
    void append(const FieldContainer& other, const std::vector<std::uint64_t>& indices);

    /// Becomes the content of `other` (all elements, or the listed ones) in fields of its own: the fields
    /// held so far are emptied but stay registered. A field that both containers share is left as it is by
    /// the first form, and replaced by one of this container's own by the second.
    void assign(const FieldContainer& other);
    void assign(const FieldContainer& other, const std::vector<std::uint64_t>& indices);

    /// Replaces the field of that name by a copy of this container's own where another container shares it
    /// (or a caller holds it); else nothing happens.
    void detach(const std::string& name);

    /// Empties every field that is not shared with `other`, and leaves the shared ones alone.
    void clearUnshared(const FieldContainer& other);

    /// Number of fields.
    [[nodiscard]] std::size_t size() const { return fields().size(); }

    /// (name, field) pairs in no particular order.
    [[nodiscard]] const_iterator begin() const { return fields().begin(); }
    [[nodiscard]] const_iterator end() const { return fields().end(); }

private:
    std::shared_ptr<FieldType>& insert(const std::string& name, std::shared_ptr<FieldType> field);
    FieldType& counterpart(const std::string& name, const FieldType& source);
    [[nodiscard]] bool shares(const std::string& name, const std::shared_ptr<FieldType>& field) const;

    [[nodiscard]] const Map& fields() const;

    // Made with the first field: most clouds of an octree have none, and there are many of them.
    std::unique_ptr<Map> fields_;
};

}  // namespace ombrix::core
