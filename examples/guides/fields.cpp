#include <cstdio>

#include <ombrix/core.h>

#include "expect.h"

using namespace ombrix::core;

int main() {
    PointCloud cloud;
    for (int i = 0; i < 1000; ++i) {
        Point p;
        p.position = Vector3f(float(i % 10), float(i / 10 % 10), float(i / 100));
        cloud.push_back(p, true);
    }

    // A field of one's own: made empty, sized by the caller
    const auto [time, isNew] = cloud.fields().addField<float>("time");
    expect(isNew, "the name was free");
    time->resize(cloud.size());
    for (std::size_t i = 0; i < cloud.size(); ++i) {
        time->data()[i] = 0.1f * float(i);
    }
    expect(!cloud.fields().addField<float>("time").second, "a name is taken once");

    // Looked up by name; empty when the element type is another one
    expect(cloud.fields().get<float>("time")->data()[7] == 0.1f * 7.0f, "the values are there");
    expect(cloud.fields().get<Vector3f>("time") == nullptr, "it is no field of vectors");
    expect(!cloud.fields().contains("colour of the sky"), "unknown names: ask first, get throws");

    // The predefined fields, filled by the estimator
    NormalEstimator::compute(cloud, 12);
    const auto normals = cloud.fields().get<Vector3f>(FIELD_NORMAL);
    expect(normals->size() == cloud.size() && cloud.hasNormals(), "one normal per point");

    // A copy has positions of its own and shares the fields
    PointCloud copy = cloud;
    copy.positions()[0] = Vector3f(5.0f, 5.0f, 5.0f);
    copy.fields().get<float>("time")->data()[0] = 42.0f;
    expect(cloud.positions()[0] == Vector3f(0.0f, 0.0f, 0.0f), "positions were copied");
    expect(cloud.fields().get<float>("time")->data()[0] == 42.0f, "fields are shared");

    // All of its own: into an empty cloud, or one field at a time
    PointCloud own;
    own.copyFrom(cloud, false);
    own.fields().get<float>("time")->data()[0] = 7.0f;
    copy.fields().detach("time");
    copy.fields().get<float>("time")->data()[0] = 8.0f;
    expect(cloud.fields().get<float>("time")->data()[0] == 42.0f, "neither reached the first cloud");

    // Appending carries fields along, and adds those that are missing
    PointCloud both;
    both.push_back(cloud, false);
    both.push_back(own, false);
    expect(both.fields().get<float>("time")->size() == 2000, "one value per point");

    // A single point fills only the fields whose flags it sets
    Point p;
    p.normal = Vector3f::UnitZ();
    p.flags = Point::HAS_NORMAL;
    both.push_back(p, false);
    expect(both.normals().size() == 2001 && both.fields().get<float>("time")->size() == 2000,
           "other fields stay one element short");
    both.fields().resize(both.size());
    std::printf("%llu points, %zu fields\n", static_cast<unsigned long long>(both.size()),
                both.fields().size());
}
