#version 460
// Copies an image onto the target through its sampler (linear filtering scales it).

layout(set = 0, binding = 0) uniform sampler2D sourceImage;

layout(location = 0) in vec2 inUv;
layout(location = 0) out vec4 outColor;

void main()
{
    outColor = texture(sourceImage, inUv);
}
