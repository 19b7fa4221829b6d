#include "examples/render_frame/tracer.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "examples/render_frame/path.h"

namespace render_frame {

namespace {

// A 32-bit hash of the name, kept as a float that is neither denormal, infinite nor NaN, so that
// software on the way cannot change its bits.
float hashName(const char* name) {
    uint32_t hash = 2166136261u;
    for (; *name; ++name)
        hash = (hash ^ static_cast<unsigned char>(*name)) * 16777619u;
    const uint32_t exponent = hash >> 23 & 255;
    if (exponent == 0 || exponent == 255) hash ^= 1u << 23;
    float value;
    std::memcpy(&value, &hash, sizeof value);
    return value;
}

void store(std::vector<float>& values, size_t pixel, Vec2 v) {
    values[2 * pixel] = v.x;
    values[2 * pixel + 1] = v.y;
}

void store(std::vector<float>& values, size_t pixel, Vec3 v) {
    values[3 * pixel] = v.x;
    values[3 * pixel + 1] = v.y;
    values[3 * pixel + 2] = v.z;
}

float fraction(float v) {
    return v - std::floor(v);
}

}  // namespace

void BucketPixels::resize(const Bucket& newBucket) {
    bucket = newBucket;
    const size_t n = static_cast<size_t>(bucket.pixelCount());
    for (auto* values : {&color, &alpha, &diffuse, &reflection, &normals, &sunLight})
        values->resize(3 * n);
    for (auto* values : {&depth, &coverage})
        values->resize(n);
    motion.resize(2 * n);
    crypto.resize(4 * n);
    objectId.resize(n);
}

// What the paths of one pixel have found so far.
struct Tracer::PixelSum {
    struct Object {
        int id = 0;
        int count = 0;  // paths that met it first
        Vec2 motion;
    };
    static constexpr size_t kMaxObjects = 8;  // that are distinguished in one pixel

    Vec3 color, diffuse, reflection, sun, normal;
    float depth = kFarDepth;
    int hits = 0;
    std::array<Object, kMaxObjects> objects;

    void add(const PathSample& sample, float viewDepth, Vec2 motion) {
        color += sample.color;
        diffuse += sample.diffuse;
        reflection += sample.reflection;
        sun += sample.sun;
        if (sample.first.object == 0) return;
        ++hits;
        normal += sample.first.normal;
        depth = std::min(depth, viewDepth);
        for (Object& object : objects) {
            if (object.count > 0 && object.id != sample.first.object) continue;
            object = {sample.first.object, object.count + 1, object.motion + motion};
            return;
        }
    }

    void store(BucketPixels& out, size_t i, int samples, const std::vector<float>& hashes) {
        const float share = 1 / static_cast<float>(samples);
        const auto part = [samples](int count) {
            return static_cast<float>(count) / static_cast<float>(samples);
        };
        render_frame::store(out.color, i, color * share);
        render_frame::store(out.alpha, i, {part(hits), part(hits), part(hits)});
        out.depth[i] = depth;
        render_frame::store(out.diffuse, i, diffuse * share);
        render_frame::store(out.reflection, i, reflection * share);
        render_frame::store(out.normals, i, hits ? normal * (1 / static_cast<float>(hits)) : Vec3{});
        render_frame::store(out.sunLight, i, sun * share);

        std::sort(objects.begin(), objects.end(), [](const Object& a, const Object& b) {
            return a.count != b.count ? a.count > b.count : a.id < b.id;
        });
        const Object& first = objects[0];
        out.objectId[i] = first.id;
        out.coverage[i] = part(first.count);
        render_frame::store(out.motion, i,
                            first.count ? first.motion * (1 / static_cast<float>(first.count)) : Vec2{});
        for (size_t rank = 0; rank < 2; ++rank) {
            out.crypto[4 * i + 2 * rank] = hashes[static_cast<size_t>(objects[rank].id)];
            out.crypto[4 * i + 2 * rank + 1] = part(objects[rank].count);
        }
    }
};

Tracer::Tracer(const Scene& scene, const RenderSettings& settings)
    : scene_(scene),
      settings_(settings),
      pixelsPerUnit_(static_cast<float>(settings.height) / (2 * std::tan(scene.camera.fov / 2))) {
    objectHashes_.push_back(0);
    for (int object = 1; object <= scene.objectCount(); ++object)
        objectHashes_.push_back(hashName(scene.objectName(object)));
}

bool Tracer::render(const Bucket& bucket, BucketPixels& pixels, const std::atomic<bool>& stop) const {
    pixels.resize(bucket);
    size_t i = 0;
    for (int y = bucket.y0; y < bucket.y1; ++y) {
        for (int x = bucket.x0; x < bucket.x1; ++x, ++i) {
            if (stop) return false;
            PixelSum sum;
            renderPixel(x, y, sum);
            sum.store(pixels, i, settings_.samples, objectHashes_);
        }
    }
    return true;
}

void Tracer::renderPixel(int x, int y, PixelSum& sum) const {
    const uint64_t pixel = static_cast<uint64_t>(y) << 32 | static_cast<uint32_t>(x);
    // The samples of a pixel start from one random point and go on in steps of the plastic number's
    // powers, which spreads them evenly over the pixel whatever their count.
    Random random(settings_.seed, pixel, ~uint64_t{0});
    const Vec2 start = random.next2();
    const float startTime = random.next();
    const Vec3 forward = -scene_.camera.z;
    for (int s = 0; s < settings_.samples; ++s) {
        random = Random(settings_.seed, pixel, static_cast<uint64_t>(s));
        const float n = static_cast<float>(s);
        const Vec2 screen{static_cast<float>(x) + fraction(start.x + n * 0.75487767f),
                          static_cast<float>(y) + fraction(start.y + n * 0.56984029f)};
        // The shutter is open for the middle half of the frame.
        const float time = 0.5f * fraction(startTime + n * 0.61803399f) - 0.25f;
        const Ray ray = cameraRay(screen, toDisk(random.next2()), time);
        const PathSample sample = tracePath(scene_, ray, random);
        const Hit& first = sample.first;
        const float depth = dot(first.position - scene_.camera.position, forward);
        sum.add(sample, depth, screenMotion(first.position, scene_.velocity(first.object)));
    }
}

Ray Tracer::cameraRay(Vec2 screen, Vec2 lens, float time) const {
    const Camera& camera = scene_.camera;
    const float x = (screen.x - 0.5f * static_cast<float>(settings_.width)) / pixelsPerUnit_;
    const float y = (0.5f * static_cast<float>(settings_.height) - screen.y) / pixelsPerUnit_;
    const Vec3 focus = (camera.x * x + camera.y * y - camera.z) * camera.focusDistance;
    const Vec3 offset = camera.x * (lens.x * camera.lensRadius) + camera.y * (lens.y * camera.lensRadius);
    return {camera.position + offset, normalize(focus - offset), time};
}

Vec2 Tracer::project(Vec3 point) const {
    const Camera& camera = scene_.camera;
    const Vec3 view = point - camera.position;
    const float scale = -pixelsPerUnit_ / dot(view, camera.z);
    return {dot(view, camera.x) * scale, -dot(view, camera.y) * scale};
}

Vec2 Tracer::screenMotion(Vec3 point, Vec3 velocity) const {
    if (velocity.x == 0 && velocity.y == 0 && velocity.z == 0) return {};
    return project(point + velocity * 0.5f) - project(point - velocity * 0.5f);
}

}  // namespace render_frame
