// Tags of how images are shown, by the keywords of PS3.6.
#pragma once

#include <cstdint>

namespace vexal::tags {

inline constexpr uint32_t kReferencedImageSequence = 0x00081140U;
inline constexpr uint32_t kPixelPresentation = 0x00089205U;
inline constexpr uint32_t kShutterShape = 0x00181600U;
inline constexpr uint32_t kShutterLeftVerticalEdge = 0x00181602U;
inline constexpr uint32_t kShutterRightVerticalEdge = 0x00181604U;
inline constexpr uint32_t kShutterUpperHorizontalEdge = 0x00181606U;
inline constexpr uint32_t kShutterLowerHorizontalEdge = 0x00181608U;
inline constexpr uint32_t kCenterOfCircularShutter = 0x00181610U;
inline constexpr uint32_t kRadiusOfCircularShutter = 0x00181612U;
inline constexpr uint32_t kVerticesOfThePolygonalShutter = 0x00181620U;
inline constexpr uint32_t kShutterPresentationValue = 0x00181622U;
inline constexpr uint32_t kShutterOverlayGroup = 0x00181623U;
inline constexpr uint32_t kShutterPresentationColorCIELabValue = 0x00181624U;
inline constexpr uint32_t kFloatPixelPaddingValue = 0x00280122U;
inline constexpr uint32_t kDoubleFloatPixelPaddingValue = 0x00280123U;
inline constexpr uint32_t kFloatPixelPaddingRangeLimit = 0x00280124U;
inline constexpr uint32_t kDoubleFloatPixelPaddingRangeLimit = 0x00280125U;
inline constexpr uint32_t kICCProfile = 0x00282000U;
inline constexpr uint32_t kSoftcopyVOILUTSequence = 0x00283110U;
inline constexpr uint32_t kMaskSubtractionSequence = 0x00286100U;
inline constexpr uint32_t kOpticalPathSequence = 0x00480105U;
inline constexpr uint32_t kGraphicAnnotationSequence = 0x00700001U;
inline constexpr uint32_t kGraphicLayer = 0x00700002U;
inline constexpr uint32_t kBoundingBoxAnnotationUnits = 0x00700003U;
inline constexpr uint32_t kAnchorPointAnnotationUnits = 0x00700004U;
inline constexpr uint32_t kGraphicAnnotationUnits = 0x00700005U;
inline constexpr uint32_t kUnformattedTextValue = 0x00700006U;
inline constexpr uint32_t kTextObjectSequence = 0x00700008U;
inline constexpr uint32_t kGraphicObjectSequence = 0x00700009U;
inline constexpr uint32_t kBoundingBoxTopLeftHandCorner = 0x00700010U;
inline constexpr uint32_t kBoundingBoxBottomRightHandCorner = 0x00700011U;
inline constexpr uint32_t kBoundingBoxTextHorizontalJustification = 0x00700012U;
inline constexpr uint32_t kAnchorPoint = 0x00700014U;
inline constexpr uint32_t kAnchorPointVisibility = 0x00700015U;
inline constexpr uint32_t kGraphicFilled = 0x00700024U;
inline constexpr uint32_t kImageHorizontalFlip = 0x00700041U;
inline constexpr uint32_t kImageRotation = 0x00700042U;
inline constexpr uint32_t kDisplayedAreaTopLeftHandCorner = 0x00700052U;
inline constexpr uint32_t kDisplayedAreaBottomRightHandCorner = 0x00700053U;
inline constexpr uint32_t kDisplayedAreaSelectionSequence = 0x0070005AU;
inline constexpr uint32_t kGraphicLayerSequence = 0x00700060U;
inline constexpr uint32_t kGraphicLayerOrder = 0x00700062U;
inline constexpr uint32_t kGraphicLayerRecommendedDisplayGrayscaleValue = 0x00700066U;
inline constexpr uint32_t kPresentationSizeMode = 0x00700100U;
inline constexpr uint32_t kPresentationPixelSpacing = 0x00700101U;
inline constexpr uint32_t kPresentationPixelAspectRatio = 0x00700102U;
inline constexpr uint32_t kPresentationPixelMagnificationRatio = 0x00700103U;
inline constexpr uint32_t kCompoundGraphicSequence = 0x00700209U;
inline constexpr uint32_t kLineStyleSequence = 0x00700232U;
inline constexpr uint32_t kPatternOnColorCIELabValue = 0x00700251U;
inline constexpr uint32_t kLineThickness = 0x00700253U;
inline constexpr uint32_t kGraphicLayerRecommendedDisplayCIELabValue = 0x00700401U;
inline constexpr uint32_t kPresentationLUTSequence = 0x20500010U;

}  // namespace vexal::tags
