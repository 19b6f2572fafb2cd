// The sky's colour in a world direction, and the encoding of the output image.

// Radiance of the sky seen in direction (world space, unit length): the ground
// colour below the horizon, the horizon colour blending into the overhead one above.
vec3 SkyRadiance(vec3 direction)
{
    float up = direction.y;
    if (up < 0.0) return mix(frame.horizonColor.rgb, frame.groundColor.rgb, clamp(-up * 4.0, 0.0, 1.0));
    return mix(frame.horizonColor.rgb, frame.skyColor.rgb, pow(clamp(up, 0.0, 1.0), 0.5));
}

// Linear radiance to the output's 8-bit values: clipped at 1, gamma 2.2.
vec3 Encode(vec3 color)
{
    return pow(clamp(color, vec3(0.0), vec3(1.0)), vec3(1.0 / 2.2));
}

// Light of the sky and the sun on a face with camera-space unit normal n,
// turned towards the camera: the same for every point of a flat face, so the
// vertices work it out for the pixels.
vec3 SkyAndSunLight(vec3 n)
{
    vec3 light = 0.35 * SkyRadiance(mat3(frame.cameraToWorld) * n); // from where the face looks
    if (frame.sunDirection.w > 0.0) light += frame.sunColor.rgb * max(dot(n, frame.sunDirection.xyz), 0.0);
    return light;
}
