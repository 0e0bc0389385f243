#include <cmath>

#include <ombrix/core/color/color.h>

namespace ombrix::core {
namespace {

float squared(float value) {
    return static_cast<float>(std::pow(static_cast<double>(value), 2.0));
}

/// c⁷ / (c⁷ + 25⁷), the chroma term that both G and RC are made of.
double chromaTerm(float chroma) {
    const double c7 = std::pow(static_cast<double>(chroma), 7.0);
    return c7 / (c7 + std::pow(25.0, 7.0));
}

float hueAngle(float b, float aPrime) {
    const float angle = 1.0f / std::tan(b / aPrime);
    return angle < 0.0f ? angle + 360.0f : angle;
}

float hueDifference(float h1, float h2) {
    const float d = h2 - h1;
    if (std::abs(d) <= 180.0f) {
        return d;
    }
    return h2 > h1 ? d - 360.0f : d + 360.0f;
}

}  // namespace

float ColorLab::norm() {
    return std::sqrt(L * L + a * a + b * b);
}

float ColorLab::CIE76Difference(const ColorLab& other) const {
    const float dL = L - other.L;
    const float da = a - other.a;
    const float db = b - other.b;
    return std::sqrt(dL * dL + da * da + db * db);
}

float ColorLab::ColorDifference(const ColorLab& other) const {
    return CIE76Difference(other);
}

float ColorLab::CIEDE2000Difference(const ColorLab& other) const {
    if (*this == other) {
        return 0.0f;  // the hue formula has no value for greys
    }
    // Chroma
    const float c1 = std::sqrt(a * a + b * b);
    const float c2 = std::sqrt(other.a * other.a + other.b * other.b);
    const float cMean = (c1 + c2) * 0.5f;
    const float g = static_cast<float>(0.5 * (1.0 - std::sqrt(chromaTerm(cMean))));
    const float a1 = a * (1.0f + g);
    const float a2 = other.a * (1.0f + g);
    const float c1Prime = std::sqrt(a1 * a1 + b * b);
    const float c2Prime = std::sqrt(a2 * a2 + other.b * other.b);

    // Hue
    const float h1 = hueAngle(b, a1);
    const float h2 = hueAngle(other.b, a2);
    float hMean = h1 + h2;
    if (std::abs(h1 - h2) > 180.0f) {
        hMean += 360.0f;
    }
    hMean *= 0.5f;
    const float t = 1.0f - 0.17f * std::cos(hMean - 30.0f) + 0.24f * std::cos(2.0f * hMean) +
                    0.32f * std::cos(3.0f * hMean + 6.0f) - 0.20f * std::cos(4.0f * hMean - 63.0f);

    // Differences
    const float dL = other.L - L;
    const float dC = c2Prime - c1Prime;
    const float dH = 2.0f * std::sqrt(c1Prime * c2Prime) * std::sin(hueDifference(h1, h2));

    // Weights
    const float lMean = (L + other.L) / 2.0f;
    const float cPrimeMean = (c1Prime + c2Prime) * 0.5f;
    const float l50 = squared(lMean - 50.0f);
    const float sL = 1.0f + 0.015f * l50 / std::sqrt(20.0f + l50);
    const float sC = 1.0f + 0.045f * cPrimeMean;
    const float sH = 1.0f + 0.015f * cPrimeMean * t;
    const float dTheta = 30.0f * std::exp(-squared((hMean - 275.0f) / 25.0f));
    const float rC = static_cast<float>(2.0 * std::sqrt(chromaTerm(cPrimeMean)));
    const float rT = -std::sin(2.0f * dTheta) * rC;

    return std::sqrt(squared(dL / sL) + squared(dC / sC) + squared(dH / sH) + rT * (dC / sC) * (dH / sH));
}

}  // namespace ombrix::core
