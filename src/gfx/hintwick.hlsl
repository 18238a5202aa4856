// Drawer backdrop: a Kawase down/up chain over the part of the game under the drawer, as
// deep and as widely spread as the blur's radius asks, then the encode for an sRGB swap chain
// (with a tone map on HDR displays), tint and opacity.

cbuffer BlurCB : register(b0) {
  float2 tapStep;    // how far apart the taps lie, in uv units: a texel at full spread
  float2 uvScale;    // whatever reads the frame itself reads only the crop of it...
  float2 uvOffset;   // ...so cropping costs no extra pass
  float encode;      // 0: frame already sRGB; 1: linear scRGB; 2: scRGB on an HDR display
  float opacity;     // the drawer's slide animation
  float4 tintColor;  // rgb, and the weight of the tint in a
  float sdrWhite;    // where SDR white sits in the frame: the display's SDR level / 80 nits
  float crossFade;   // the former composite: 1 shows the blur alone, 0 the unblurred frame
};

Texture2D srcTex : register(t0);
Texture2D frameTex : register(t1);  // the former composite only: the captured frame itself
SamplerState srcSmp : register(s0);

struct VSOut {
  float4 pos : SV_Position;
  float2 uv : TEXCOORD0;
};

// One triangle that covers the viewport, without any vertex buffer.
VSOut VSMain(uint id : SV_VertexID) {
  VSOut o;
  float2 xy = float2((id << 1) & 2, id & 2);
  o.pos = float4(xy.x * 2 - 1, 1 - xy.y * 2, 0, 1);
  o.uv = xy;
  return o;
}

// A macro rather than a function: some shader compilers still refuse user functions.
#define S(uv) srcTex.Sample(srcSmp, (uv))

// Kawase downsample: the centre weighted four times against the four diagonal corners.
float4 PSDown(VSOut i) : SV_Target {
  float2 uv = i.uv * uvScale + uvOffset;
  float2 t = tapStep;
  float4 sum = 4 * S(uv);
  sum += S(uv + t * float2(-1, -1));
  sum += S(uv + t * float2(1, -1));
  sum += S(uv + t * float2(-1, 1));
  sum += S(uv + t * float2(1, 1));
  return sum / 8;
}

// Kawase upsample: a tent of four edge and four diagonal taps.
float4 PSUp(VSOut i) : SV_Target {
  float2 uv = i.uv;
  float2 t = tapStep;
  float4 sum = S(uv + t * float2(-2, 0));
  sum += 2 * S(uv + t * float2(-1, 1));
  sum += S(uv + t * float2(0, 2));
  sum += 2 * S(uv + t * float2(1, 1));
  sum += S(uv + t * float2(2, 0));
  sum += 2 * S(uv + t * float2(1, -1));
  sum += S(uv + t * float2(0, -2));
  sum += 2 * S(uv + t * float2(-1, -1));
  return sum / 12;
}

// Captured frames are FP16 scRGB: linear light, while the swap chain is shown as sRGB, so
// they are encoded here or mid-tones come out about half as bright. On an HDR display the
// game's SDR white arrives at the display's SDR level, so it is brought back to 1.0 first;
// anything above it is genuine HDR content that must be brought into range or the backdrop
// blows out. The output is premultiplied, as DirectComposition expects.
float4 PSComposite(VSOut i) : SV_Target {
#ifdef CROSS_FADE
  // The former composite, built for benches only: the whole chain's blur over the sharp crop.
  float3 sharp = frameTex.Sample(srcSmp, i.uv * uvScale + uvOffset).rgb;
  float3 c = lerp(sharp, S(i.uv).rgb, crossFade);
#else
  // The chain's first level, or, without blur, the crop of the frame itself.
  float3 c = S(i.uv * uvScale + uvOffset).rgb;
#endif
  if (encode > 1.5) {
    c = max(c / sdrWhite, 0);
    c = c / (1 + c);
  }
  if (encode > 0.5) {
    // The sRGB curve: linear in the toe, a power above it. The max keeps pow clear of 0,
    // where the toe is taken anyway.
    c = saturate(c);
    float3 curve = 1.055 * pow(max(c, 0.0031308), 1 / 2.4) - 0.055;
    float3 above_toe = c > 0.0031308;
    c = lerp(c * 12.92, curve, above_toe);
  }
  c = lerp(c, tintColor.rgb, tintColor.a);
  return float4(c * opacity, opacity);
}
