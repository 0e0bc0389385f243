#include <limits>
#include <memory>

#include <gtest/gtest.h>

#include <ombrix/core/points/fields.h>

#include "tests/support/expect_throw.h"

namespace {

using namespace ombrix::core;
using Indices = std::vector<std::uint64_t>;

std::shared_ptr<FieldArray<float>> numbers(FieldContainer& fields, const std::string& name,
                                           std::vector<float> values) {
    auto field = fields.addField<float>(name).first;
    field->data() = std::move(values);
    return field;
}

const std::vector<float>& valuesOf(const FieldContainer& fields, const std::string& name) {
    return fields.get<float>(name)->data();
}

TEST(FieldContainer, AddsANameOnceAndLooksItUpByType) {
    FieldContainer fields;
    const auto [field, added] = fields.addField<Vector3f>(FIELD_NORMAL);
    ASSERT_TRUE(added);
    EXPECT_EQ(field->name, "normal");
    EXPECT_EQ(field->description, "");
    EXPECT_EQ(field->components, 3u);
    EXPECT_EQ(fields.addField<float>("weight").first->components, 1u);
    const auto again = fields.addField<Vector3f>(FIELD_NORMAL);
    EXPECT_EQ(again.first, nullptr);
    EXPECT_FALSE(again.second);
    EXPECT_EQ(fields.size(), 2u);
    EXPECT_EQ(fields.get(FIELD_NORMAL), field);
    EXPECT_EQ(fields.get<Vector3d>(FIELD_NORMAL), nullptr);
    ombrix::test::expectMissingKey([&] { (void)fields.get("missing"); });
    ombrix::test::expectMissingKey([&] { (void)fields.get<float>("missing"); });
    EXPECT_EQ(fields.size(), 2u) << "a lookup must not insert";
}

TEST(FieldContainer, HashesNamesByFnv1a) {
    const FieldContainer::hash hash;
    EXPECT_EQ(hash(""), 0xcbf29ce484222325u);  // published test vectors
    EXPECT_EQ(hash("a"), 0xaf63dc4c8601ec8cu);
    EXPECT_EQ(hash("foobar"), 0x85944171f73967e8u);
}

TEST(FieldArray, DescribesItsScalarNotItsElement) {
    FieldContainer fields;
    const auto vectors = fields.addField<Vector3d>("vectors").first;
    vectors->resize(2);
    EXPECT_EQ(vectors->typeCode(), 10);
    EXPECT_EQ(vectors->typeName(), "FLOAT64");
    EXPECT_EQ(vectors->byteSize(), 48u);
    EXPECT_EQ(vectors->data()[1], Vector3d(0, 0, 0));
    const auto normals = fields.addField<Vector3f>("normals").first;
    EXPECT_EQ(normals->typeCode(), 9);
    EXPECT_EQ(normals->typeName(), "FLOAT32");
    EXPECT_EQ(normals->elementType(), std::type_index(typeid(Vector3f)));
    const auto field = numbers(fields, "x", {});
    field->resizeBytes(50);
    EXPECT_EQ(field->size(), 12u);
    EXPECT_EQ(field->dataPointer(), field->data().data());
    field->reserve(100);
    field->clear();
    EXPECT_TRUE(field->empty());
    EXPECT_GE(field->data().capacity(), 100u);
    field->release();
    EXPECT_EQ(field->data().capacity(), 0u);
    EXPECT_THROW(field->reserve(std::numeric_limits<std::uint64_t>::max()), std::length_error);
}

TEST(FieldArray, CopiesAndAppendsOnlyItsOwnElementType) {
    FieldContainer a;
    FieldContainer b;
    const auto x = numbers(a, "x", {1, 2, 3});
    const auto y = numbers(b, "y", {10, 20, 30, 40});
    y->components = 7;
    x->appendRange(*y, 2, 2);
    x->appendSelected(*y, {3, 0, 3});
    EXPECT_EQ(x->data(), (std::vector<float>{1, 2, 3, 30, 40, 10, 40}));
    x->copySelected(*y, {1, 1});
    EXPECT_EQ(x->data(), (std::vector<float>{20, 20}));
    EXPECT_EQ(x->components, 7u);
    x->copy(*y);
    EXPECT_EQ(x->data(), y->data());
    const auto vectors = b.addField<Vector3f>("v").first;
    vectors->data() = {Vector3f(1, 2, 3)};
    x->append(*vectors);
    x->copy(*vectors);
    x->copySelected(*vectors, {0});
    EXPECT_EQ(x->data(), y->data()) << "another element type must change nothing";
}

TEST(FieldContainer, BecomesSomeOfItsOwnElements) {
    FieldContainer fields;
    numbers(fields, "full", {1, 2, 3});
    numbers(fields, "none", {});
    fields.assign(fields, {2, 0});
    EXPECT_EQ(valuesOf(fields, "full"), (std::vector<float>{3, 1}));
    EXPECT_TRUE(fields.get("none")->empty());
    EXPECT_EQ(fields.get("none")->makeEmpty()->components, 1u);
    EXPECT_EQ(FieldArray<Vector3d>().components, 3u);
}

TEST(FieldContainer, AppendsUnionsAndSkipsOtherTypes) {
    FieldContainer a;
    FieldContainer b;
    numbers(a, "both", {1});
    a.addField<Vector3f>(FIELD_DISTANCE);
    numbers(b, "both", {2, 3});
    numbers(b, FIELD_DISTANCE, {5, 6});
    numbers(b, "new", {7, 8})->description = "text";
    a.append(b);
    EXPECT_EQ(valuesOf(a, "both"), (std::vector<float>{1, 2, 3}));
    EXPECT_EQ(valuesOf(a, "new"), (std::vector<float>{7, 8}));
    EXPECT_EQ(a.get("new")->description, "text");
    EXPECT_TRUE(a.get(FIELD_DISTANCE)->empty());
    a.append(b, 1, 1);
    a.append(b, Indices{0, 0});
    EXPECT_EQ(valuesOf(a, "new"), (std::vector<float>{7, 8, 8, 7, 7}));
}

TEST(FieldContainer, CopiesShareFieldsUntilDetached) {
    FieldContainer a;
    numbers(a, "x", {1, 2});
    FieldContainer b = a;
    b.get<float>("x")->data()[0] = 9;
    EXPECT_EQ(valuesOf(a, "x")[0], 9.0f);
    b.detach("x");
    b.get<float>("x")->data()[0] = 4;
    EXPECT_EQ(valuesOf(a, "x")[0], 9.0f);
    EXPECT_EQ(valuesOf(b, "x"), (std::vector<float>{4, 2}));
    const FieldContainer moved = std::move(a);
    EXPECT_EQ(moved.size(), 1u);
}

}  // namespace
