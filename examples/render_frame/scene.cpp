#include "examples/render_frame/scene.h"

#include <limits>

namespace render_frame {

namespace {

constexpr float kNear = 1e-3f;  // surfaces nearer than this are the one that the ray starts on
constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr Vec3 kHorizon{0.42f, 0.50f, 0.63f};
constexpr Vec3 kZenith{0.05f, 0.14f, 0.38f};
constexpr Vec3 kGlow{0.80f, 0.52f, 0.28f};

Camera lookAt(Vec3 from, Vec3 to, float fovDegrees, float lensRadius) {
    const Vec3 back = normalize(from - to);
    const Vec3 right = normalize(cross({0, 1, 0}, back));
    return {from,      right, cross(back, right), back, fovDegrees * 3.14159265f / 180, length(from - to),
            lensRadius};
}

// Distance to the sphere, or infinity. The test through the foot of the perpendicular keeps its digits
// for spheres that are small and far away.
float hitSphere(const Sphere& sphere, const Ray& ray) {
    const Vec3 toCenter = sphere.centerAt(ray.time) - ray.origin;
    const float foot = dot(toCenter, ray.direction);
    const Vec3 aside = toCenter - ray.direction * foot;
    const float square = sphere.radius * sphere.radius - dot(aside, aside);
    if (square < 0) return kInfinity;
    const float half = std::sqrt(square);
    if (foot - half > kNear) return foot - half;
    return foot + half > kNear ? foot + half : kInfinity;
}

float hitGround(const Ray& ray) {
    const float distance = -ray.origin.y / ray.direction.y;
    return distance > kNear && distance < Scene::kFar ? distance : kInfinity;
}

Material groundAt(Vec3 p) {
    const bool dark = (static_cast<int>(std::floor(p.x)) + static_cast<int>(std::floor(p.z))) & 1;
    return {Material::kDiffuse, dark ? Vec3{0.07f, 0.08f, 0.10f} : Vec3{0.62f, 0.58f, 0.52f}, 0};
}

}  // namespace

Scene Scene::demo(int frame) {
    Scene scene;
    const Vec3 middle{0.05f, 0.98f, 0}, start = Vec3{0.5f, 1.75f, 8.2f} - middle;
    const float angle = 6.2831853f * static_cast<float>((frame - 1) % kFramesAround) / kFramesAround;
    const float along = std::cos(angle), across = std::sin(angle);
    const Vec3 from{along * start.x + across * start.z, start.y, along * start.z - across * start.x};
    scene.camera = lookAt(from + middle, middle, 31, 0.035f);
    scene.sun = {normalize({-0.70f, 0.56f, 0.22f}), std::cos(0.045f), Vec3{1.0f, 0.86f, 0.66f} * 4.2f};
    scene.spheres = {
        {"ball.red", {-0.45f, 1.0f, 0}, 1.0f, {Material::kCoated, {0.62f, 0.035f, 0.025f}}, {}},
        {"ball.gold", {-2.75f, 0.85f, -0.5f}, 0.85f, {Material::kMetal, {0.98f, 0.70f, 0.30f}, 0.12f}, {}},
        {"ball.mirror", {2.35f, 1.25f, -1.7f}, 1.25f, {Material::kMetal, {0.92f, 0.93f, 0.95f}, 0.004f}, {}},
        {"ball.glass", {1.22f, 0.7f, 1.5f}, 0.7f, {Material::kGlass, {0.97f, 0.99f, 0.98f}}, {}},
        {"ball.lamp", {-1.72f, 0.33f, 1.75f}, 0.33f, {Material::kLamp, {6.0f, 2.9f, 0.95f}}, {}},
        {"ball.blue", {0.30f, 0.36f, 2.0f}, 0.36f, {Material::kCoated, {0.05f, 0.17f, 0.62f}}, {}},
        {"ball.chalk", {-0.62f, 0.27f, 2.5f}, 0.27f, {Material::kDiffuse, {0.83f, 0.80f, 0.74f}}, {}},
        {"ball.thrown",
         {1.02f, 2.32f, -0.2f},
         0.34f,
         {Material::kCoated, {0.11f, 0.52f, 0.16f}},
         {0.62f, 0.26f, 0}},
        {"ball.rolling",
         {-3.05f, 0.3f, 1.45f},
         0.3f,
         {Material::kCoated, {0.82f, 0.44f, 0.05f}},
         {0.36f, 0, 0.1f}},
    };
    for (size_t i = 0; i < scene.spheres.size(); ++i)
        if (scene.spheres[i].material.kind == Material::kLamp) scene.lamps.push_back(static_cast<int>(i));
    return scene;
}

Hit Scene::intersect(const Ray& ray) const {
    float nearest = hitGround(ray);
    int object = nearest < kInfinity ? kGround : 0;
    for (size_t i = 0; i < spheres.size(); ++i) {
        const float distance = hitSphere(spheres[i], ray);
        if (distance < nearest) {
            nearest = distance;
            object = kGround + 1 + static_cast<int>(i);
        }
    }
    Hit hit;
    if (object == 0) return hit;
    hit.object = object;
    hit.distance = nearest;
    hit.position = ray.origin + ray.direction * nearest;
    if (object == kGround) {
        hit.position.y = 0;
        hit.normal = {0, 1, 0};
        hit.material = groundAt(hit.position);
    } else {
        const Sphere& sphere = spheres[static_cast<size_t>(object - kGround - 1)];
        hit.normal = (hit.position - sphere.centerAt(ray.time)) * (1 / sphere.radius);
        hit.material = sphere.material;
    }
    return hit;
}

Vec3 Scene::transmittance(const Ray& ray, float distance) const {
    // A shadow ray passes glass straight on, at half strength: what the lens bends away is not followed.
    Vec3 passed{1, 1, 1};
    if (hitGround(ray) < distance) return {};
    for (const Sphere& sphere : spheres) {
        if (hitSphere(sphere, ray) >= distance) continue;
        if (sphere.material.kind != Material::kGlass) return {};
        passed *= sphere.material.color * 0.5f;
    }
    return passed;
}

Vec3 Scene::sky(Vec3 direction) const {
    const float up = std::fmax(direction.y, 0.0f);
    const float towardsSun = std::fmax(dot(direction, sun.direction), 0.0f);
    const float square = towardsSun * towardsSun, fourth = square * square;
    return mix(kHorizon, kZenith, std::pow(up, 0.45f)) + kGlow * (fourth * fourth * 0.6f);
}

float Scene::clarity(float distance) const {
    return std::exp(-distance / kHazeRange);
}

Vec3 Scene::hazeColor() const {
    return kHorizon;
}

const char* Scene::objectName(int object) const {
    if (object == 0) return "";
    return object == kGround ? "ground" : spheres[static_cast<size_t>(object - kGround - 1)].name;
}

Vec3 Scene::velocity(int object) const {
    return object <= kGround ? Vec3{} : spheres[static_cast<size_t>(object - kGround - 1)].velocity;
}

}  // namespace render_frame
