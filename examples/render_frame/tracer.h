#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "examples/render_frame/scene.h"
#include "examples/render_frame/spiral.h"

namespace render_frame {

// The value of the depth channel where there is no object.
constexpr float kFarDepth = 1e30f;

// The finished values of one bucket, row after row from the top, channel by channel. Colours are linear
// radiance, not clamped, and as noisy as the number of samples makes them.
struct BucketPixels {
    Bucket bucket;
    std::vector<float> color;       // 3 each: everything that reaches the camera
    std::vector<float> alpha;       // 3 equal ones: share of the pixel that an object covers
    std::vector<float> depth;       // 1: distance of the nearest surface along the view axis, or kFarDepth
    std::vector<float> diffuse;     // 3: the part of color that a matt surface scattered
    std::vector<float> reflection;  // 3: the part of color that a mirror or glass sent on
    std::vector<float> normals;     // 3: mean unit normal in world space, 0 where there is no object
    std::vector<float> motion;      // 2: movement of the main object on the screen, pixels in a frame, y down
    std::vector<int32_t> objectId;  // 1: number of the main object, the one that covers most; 0 for none
    std::vector<float> crypto;      // 4: name hash and coverage of the main object, the same of the second
    std::vector<float> coverage;    // 1: share of the pixel that the main object covers
    std::vector<float> sunLight;    // 3: the part of color that came from the sun, however often it bounced

    // Makes room for the bucket's values. Memory is kept, so the same record serves bucket after bucket.
    void resize(const Bucket& newBucket);
};

struct RenderSettings {
    int width = 640;
    int height = 360;
    int samples = 48;  // paths for each pixel
    uint64_t seed = 1;
    int frame = 1;  // of the shot; the camera moves from frame to frame
};

// Path-traces a scene. Each pixel draws its random numbers from its own place in the frame, so its values
// depend on the scene, the settings and the build only: not on the bucket it lies in, nor on which thread
// renders it. All operations are const and may run at the same time.
class Tracer {
  public:
    // The scene must outlive the tracer.
    Tracer(const Scene& scene, const RenderSettings& settings);

    const RenderSettings& settings() const { return settings_; }

    // Fills `pixels` with the values of `bucket`, which lies inside the frame. Gives up soon after `stop`
    // becomes true, and answers false then: the values are not complete.
    bool render(const Bucket& bucket, BucketPixels& pixels, const std::atomic<bool>& stop) const;

  private:
    struct PixelSum;

    void renderPixel(int x, int y, PixelSum& sum) const;
    Ray cameraRay(Vec2 screen, Vec2 lens, float time) const;
    Vec2 project(Vec3 point) const;
    Vec2 screenMotion(Vec3 point, Vec3 velocity) const;

    const Scene& scene_;
    RenderSettings settings_;
    std::vector<float> objectHashes_;  // by object number
    float pixelsPerUnit_;              // on a plane at distance 1 before the camera
};

}  // namespace render_frame
