#include "page_file.h"

#include <cstring>
#include <stdexcept>
#include <vector>

using namespace ombrix::core;

namespace paged {
namespace {

constexpr int DOUBLES = 10;  // type code of a field of doubles

/// Puts values behind one another, as they lie in memory.
class Writer {
public:
    std::vector<char> bytes;

    void raw(const void* data, std::size_t size) {
        const char* first = static_cast<const char*>(data);
        bytes.insert(bytes.end(), first, first + size);
    }
    void number(std::uint64_t value) { raw(&value, sizeof value); }
    template <class T>
    void array(const std::vector<T>& values) {
        number(values.size());
        raw(values.data(), values.size() * sizeof(T));
    }
};

/// Takes them back, never more than there is.
class Reader {
public:
    explicit Reader(const std::vector<char>& bytes) : next_(bytes.data()), left_(bytes.size()) {}

    void raw(void* data, std::size_t size) {
        if (size > left_) {
            throw std::runtime_error("a page is damaged");
        }
        if (size > 0) {
            std::memcpy(data, next_, size);
        }
        next_ += size;
        left_ -= size;
    }
    std::uint64_t number() {
        std::uint64_t value = 0;
        raw(&value, sizeof value);
        return value;
    }
    /// A number of elements of a size, which the page must still hold.
    std::size_t count(std::size_t elementSize) {
        const std::uint64_t n = number();
        if (n > left_ / elementSize) {
            throw std::runtime_error("a page is damaged");
        }
        return static_cast<std::size_t>(n);
    }
    template <class T>
    void array(std::vector<T>& values) {
        values.resize(count(sizeof(T)));
        raw(static_cast<void*>(values.data()), values.size() * sizeof(T));
    }

private:
    const char* next_;
    std::size_t left_;
};

std::shared_ptr<FieldType> addField(PointCloud& cloud, const std::string& name, std::uint64_t typeCode,
                                    std::uint64_t components) {
    if (typeCode == DOUBLES) {
        return cloud.fields().addField<Vector3d>(name).first;
    }
    if (components == 1) {
        return cloud.fields().addField<float>(name).first;
    }
    return cloud.fields().addField<Vector3f>(name).first;
}

}  // namespace

PageFile::PageFile(const std::string& path)
    : path_(path), file_(path, std::ios::in | std::ios::out | std::ios::trunc | std::ios::binary) {
    if (!file_) {
        throw std::runtime_error("cannot create the page file " + path);
    }
}

Page PageFile::write(const PointCloud& cloud) {
    Writer writer;
    writer.array(cloud.positions());
    writer.array(cloud.colors());
    writer.array(cloud.scalars());
    writer.number(cloud.fields().size());
    for (const auto& [name, field] : cloud.fields()) {
        writer.array(std::vector<char>(name.begin(), name.end()));
        writer.number(static_cast<std::uint64_t>(field->typeCode()));
        writer.number(field->components);
        writer.number(field->byteSize());
        writer.raw(std::as_const(*field).dataPointer(), field->byteSize());
    }

    const Page page{end_, writer.bytes.size()};
    file_.clear();
    file_.seekp(static_cast<std::streamoff>(page.offset));
    file_.write(writer.bytes.data(), static_cast<std::streamsize>(page.bytes));
    file_.flush();
    if (!file_) {
        throw std::runtime_error("cannot write " + std::to_string(page.bytes) + " bytes to the page file " +
                                 path_);
    }
    end_ += page.bytes;
    return page;
}

std::shared_ptr<PointCloud> PageFile::read(const Page& page) {
    std::vector<char> bytes(page.bytes);
    file_.clear();
    file_.seekg(static_cast<std::streamoff>(page.offset));
    file_.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!file_) {
        throw std::runtime_error("cannot read " + std::to_string(page.bytes) + " bytes from the page file " +
                                 path_);
    }

    Reader reader(bytes);
    auto cloud = std::make_shared<PointCloud>();
    reader.array(cloud->positions());
    reader.array(cloud->colors());
    reader.array(cloud->scalars());
    for (std::uint64_t fields = reader.number(); fields > 0; --fields) {
        std::vector<char> name;
        reader.array(name);
        const std::uint64_t typeCode = reader.number();
        const std::uint64_t components = reader.number();
        const auto field = addField(*cloud, std::string(name.begin(), name.end()), typeCode, components);
        if (!field) {
            throw std::runtime_error("a page is damaged");
        }
        const std::size_t size = reader.count(1);
        field->resizeBytes(size);
        reader.raw(field->dataPointer(), size);
    }
    return cloud;
}

}  // namespace paged
