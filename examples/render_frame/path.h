#pragma once

#include "examples/render_frame/random.h"
#include "examples/render_frame/scene.h"

namespace render_frame {

// What one path from the camera found. The lobes add up to `color`, less what the camera sees directly
// (sky, haze, lamps); `sun` is a different cut through the same light.
struct PathSample {
    Vec3 color, diffuse, reflection, sun;
    Hit first;  // the surface that the camera sees
};

// Follows one path through the scene.
PathSample tracePath(const Scene& scene, const Ray& ray, Random& random);

}  // namespace render_frame
