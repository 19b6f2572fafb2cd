#version 460
// The crosshair: one point at the centre of the screen, sized by the interface scale.

layout(push_constant) uniform Crosshair {
    float ui_scaling;
} crosshair;

void main()
{
    gl_Position = vec4(0.0, 0.0, 0.0, 1.0);
    gl_PointSize = max(1.0, 28.0 * crosshair.ui_scaling);
}
