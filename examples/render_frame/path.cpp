#include "examples/render_frame/path.h"

#include <algorithm>

namespace render_frame {

namespace {

constexpr int kMaxBounces = 8;
constexpr float kMaxIndirect = 9.0f;  // light found after a bounce is cut here: fewer lone bright pixels
constexpr float kPi = 3.14159265f;
constexpr float kTwoPi = 2 * kPi;

// Share of light that a smooth surface reflects, `f0` of it when seen straight on.
float fresnel(float cosine, float f0) {
    const float m = 1 - cosine, m2 = m * m;
    return f0 + (1 - f0) * m2 * m2 * m;
}

// One path on its way: where it is going, what it may still bring home, and what it has found.
class Path {
  public:
    Path(const Scene& scene, const Ray& ray, Random& random) : scene_(scene), random_(random), ray_(ray) {}

    PathSample trace();

  private:
    void addHaze(float distance);
    void addSky();
    void bounce(const Hit& hit);
    void bounceCoated(const Hit& hit, Vec3 normal, float cosine);
    void bounceDiffuse(const Hit& hit, Vec3 normal);
    void bounceMirror(const Hit& hit, Vec3 normal, Vec3 color);
    void bounceGlass(const Hit& hit);
    void addSunLight(const Hit& hit, Vec3 normal);
    void addLampLight(const Hit& hit, Vec3 normal, const Sphere& lamp);
    Vec3 add(Vec3 light);
    void enterLobe(Vec3 PathSample::*lobe) {
        if (!lobe_) lobe_ = lobe;
    }
    void leave(const Hit& hit, Vec3 direction, Vec3 weight, bool mirrored) {
        ray_ = {hit.position, direction, ray_.time};
        throughput_ *= weight;
        mirrored_ = mirrored;
    }

    const Scene& scene_;
    Random& random_;
    Ray ray_;
    Vec3 throughput_{1, 1, 1};
    bool mirrored_ = true;  // no matt surface since the last place where lights were asked for directly
    int bounces_ = 0;
    Vec3 PathSample::*lobe_ = nullptr;  // what the first surface did decides where light is booked
    PathSample sample_;
};

PathSample Path::trace() {
    for (; bounces_ <= kMaxBounces; ++bounces_) {
        const Hit hit = scene_.intersect(ray_);
        if (bounces_ == 0) sample_.first = hit;
        if (hit.object == 0) {
            addSky();
            break;
        }
        addHaze(hit.distance);
        if (hit.material.kind == Material::kLamp) {
            if (mirrored_) add(hit.material.color);
            break;
        }
        bounce(hit);
        if (bounces_ < 2) continue;
        const float survival = std::min(maxComponent(throughput_), 0.95f);
        if (random_.next() >= survival) break;
        throughput_ = throughput_ * (1 / survival);
    }
    return sample_;
}

Vec3 Path::add(Vec3 light) {
    light *= throughput_;
    if (bounces_ > 0) {
        const float brightest = maxComponent(light);
        if (brightest > kMaxIndirect) light = light * (kMaxIndirect / brightest);
    }
    sample_.color += light;
    if (lobe_) sample_.*lobe_ += light;
    return light;
}

void Path::addHaze(float distance) {
    const float clarity = scene_.clarity(distance);
    add(scene_.hazeColor() * (1 - clarity));
    throughput_ = throughput_ * clarity;
}

void Path::addSky() {
    add(scene_.sky(ray_.direction));
    const Sun& sun = scene_.sun;
    if (!mirrored_ || dot(ray_.direction, sun.direction) < sun.cosAngle) return;
    sample_.sun += add(sun.irradiance * (1 / (kTwoPi * (1 - sun.cosAngle))));
}

void Path::bounce(const Hit& hit) {
    const float facing = -dot(ray_.direction, hit.normal);
    const Vec3 normal = facing < 0 ? -hit.normal : hit.normal;
    const float cosine = std::fabs(facing);
    switch (hit.material.kind) {
        case Material::kMetal:
            return bounceMirror(hit, normal, mix(hit.material.color, {1, 1, 1}, fresnel(cosine, 0)));
        case Material::kGlass: return bounceGlass(hit);
        case Material::kCoated: return bounceCoated(hit, normal, cosine);
        default: return bounceDiffuse(hit, normal);
    }
}

void Path::bounceCoated(const Hit& hit, Vec3 normal, float cosine) {
    // The coat sends little light on, but the eye looks at it: it gets more than its share of the paths.
    const float reflected = fresnel(cosine, 0.04f);
    const float chance = 0.25f + 0.75f * reflected;
    if (random_.next() < chance) {
        const float weight = reflected / chance;
        return bounceMirror(hit, normal, {weight, weight, weight});
    }
    throughput_ = throughput_ * ((1 - reflected) / (1 - chance));
    bounceDiffuse(hit, normal);
}

void Path::bounceDiffuse(const Hit& hit, Vec3 normal) {
    enterLobe(&PathSample::diffuse);
    addSunLight(hit, normal);
    for (const int lamp : scene_.lamps)
        addLampLight(hit, normal, scene_.spheres[static_cast<size_t>(lamp)]);
    const Vec3 direction = Frame(normal).toWorld(toCosineHemisphere(random_.next2()));
    leave(hit, direction, hit.material.color, false);
}

void Path::bounceMirror(const Hit& hit, Vec3 normal, Vec3 color) {
    enterLobe(&PathSample::reflection);
    // Roughness is a small ball around the tip of the mirrored direction in which the true tip lies.
    const Vec3 onBall = toCone(random_.next2(), -1);
    const Vec3 inBall = onBall * std::cbrt(random_.next());
    Vec3 direction = normalize(reflect(ray_.direction, normal) + inBall * hit.material.roughness);
    const float under = dot(direction, normal);
    if (under < 0) direction = direction - normal * (2 * under);
    leave(hit, direction, color, true);
}

void Path::bounceGlass(const Hit& hit) {
    enterLobe(&PathSample::reflection);
    constexpr float kIndex = 1.5f, kStraightOn = 0.04f;
    const float cosine = -dot(ray_.direction, hit.normal);
    const bool entering = cosine > 0;
    const Vec3 normal = entering ? hit.normal : -hit.normal;
    const float ratio = entering ? 1 / kIndex : kIndex;
    const float cosineIn = std::fabs(cosine);
    const float squareOut = 1 - ratio * ratio * (1 - cosineIn * cosineIn);
    const float cosineOut = squareOut > 0 ? std::sqrt(squareOut) : 0;
    // Seen from inside, the larger angle is the one outside.
    const float reflected = squareOut > 0 ? fresnel(entering ? cosineIn : cosineOut, kStraightOn) : 1;
    if (random_.next() < reflected) return leave(hit, reflect(ray_.direction, normal), {1, 1, 1}, mirrored_);
    const Vec3 direction = normalize(ray_.direction * ratio + normal * (ratio * cosineIn - cosineOut));
    leave(hit, direction, hit.material.color, mirrored_);
}

void Path::addSunLight(const Hit& hit, Vec3 normal) {
    const Sun& sun = scene_.sun;
    const Vec3 direction = Frame(sun.direction).toWorld(toCone(random_.next2(), sun.cosAngle));
    const float cosine = dot(direction, normal);
    if (cosine <= 0) return;
    const Vec3 passed = scene_.transmittance({hit.position, direction, ray_.time}, INFINITY);
    sample_.sun += add(passed * sun.irradiance * hit.material.color * (cosine / kPi));
}

void Path::addLampLight(const Hit& hit, Vec3 normal, const Sphere& lamp) {
    const Vec3 toLamp = lamp.centerAt(ray_.time) - hit.position;
    const float distance = length(toLamp);
    const float sine = lamp.radius / distance;
    if (sine >= 1) return;
    const float cosAngle = std::sqrt(1 - sine * sine);
    const Vec3 direction = Frame(toLamp * (1 / distance)).toWorld(toCone(random_.next2(), cosAngle));
    const float cosine = dot(direction, normal);
    if (cosine <= 0) return;
    // No part of the lamp is nearer than its front, and nothing of interest hides inside it.
    const Vec3 passed = scene_.transmittance({hit.position, direction, ray_.time}, distance - lamp.radius);
    const float solidAngle = kTwoPi * (1 - cosAngle);
    add(passed * lamp.material.color * hit.material.color * (cosine * solidAngle / kPi));
}

}  // namespace

PathSample tracePath(const Scene& scene, const Ray& ray, Random& random) {
    return Path(scene, ray, random).trace();
}

}  // namespace render_frame
