#include <iterator>
#include <type_traits>
#include <typeinfo>

#include <ombrix/core/points/append_detail.h>
#include <ombrix/core/points/fields.h>

namespace ombrix::core {
namespace {

template <class T>
constexpr bool IS_DOUBLE = std::is_same_v<T, Vector3d>;

template <class T>
T zero() {
    if constexpr (std::is_same_v<T, float>) {
        return 0.0f;
    } else {
        return T::Zero();
    }
}

template <class T>
const FieldArray<T>* sameType(const FieldType& field) {
    return dynamic_cast<const FieldArray<T>*>(&field);
}

}  // namespace

template <class T>
std::string FieldArray<T>::elementTypeName() const {
    return typeid(T).name();
}

template <class T>
std::type_index FieldArray<T>::elementType() const {
    return typeid(T);
}

template <class T>
int FieldArray<T>::typeCode() const {
    return IS_DOUBLE<T> ? 10 : 9;
}

template <class T>
std::string FieldArray<T>::typeName() const {
    return IS_DOUBLE<T> ? "FLOAT64" : "FLOAT32";
}

template <class T>
const void* FieldArray<T>::dataPointer() const {
    return data_.data();
}

template <class T>
void* FieldArray<T>::dataPointer() {
    return data_.data();
}

template <class T>
void FieldArray<T>::clear() {
    data_.clear();
}

template <class T>
void FieldArray<T>::release() {
    clear();
    data_.shrink_to_fit();
}

template <class T>
void FieldArray<T>::reserve(std::uint64_t n) {
    data_.reserve(n);
}

template <class T>
void FieldArray<T>::resize(std::uint64_t n) {
    data_.resize(n, zero<T>());
}

template <class T>
std::uint64_t FieldArray<T>::size() const {
    return data_.size();
}

template <class T>
std::uint64_t FieldArray<T>::byteSize() const {
    return size() * sizeof(T);
}

template <class T>
void FieldArray<T>::resizeBytes(std::uint64_t n) {
    resize(n / sizeof(T));
}

template <class T>
bool FieldArray<T>::empty() const {
    return data_.empty();
}

template <class T>
void FieldArray<T>::copySelected(const FieldType& other, const std::vector<std::uint64_t>& indices) {
    if (const auto* source = sameType<T>(other)) {
        std::vector<T> selected;
        detail::appendSelected(selected, source->data_, indices);
        data_ = std::move(selected);
        components = source->components;
    }
}

template <class T>
void FieldArray<T>::copy(const FieldType& other) {
    if (const auto* source = sameType<T>(other)) {
        data_ = source->data_;
        components = source->components;
    }
}

template <class T>
void FieldArray<T>::appendSelected(const FieldType& other, const std::vector<std::uint64_t>& indices) {
    if (const auto* source = sameType<T>(other)) {
        detail::appendSelected(data_, source->data_, indices);
    }
}

template <class T>
void FieldArray<T>::appendRange(const FieldType& other, std::uint64_t first, std::uint64_t last) {
    if (const auto* source = sameType<T>(other)) {
        detail::appendRange(data_, source->data_, first, last);
    }
}

template <class T>
void FieldArray<T>::append(const FieldType& other) {
    if (const auto* source = sameType<T>(other); source && !source->data_.empty()) {
        detail::appendRange(data_, source->data_, 0, source->data_.size() - 1);
    }
}

template <class T>
std::shared_ptr<FieldType> FieldArray<T>::makeEmpty() const {
    return std::make_shared<FieldArray<T>>();
}

template class FieldArray<float>;
template class FieldArray<Vector3f>;
template class FieldArray<Vector3d>;

}  // namespace ombrix::core
