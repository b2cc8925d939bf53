# The public headers of psdkit, relative to src/psdkit: everything a host program includes, and
# everything those headers include in turn. `cmake --install` copies exactly these (and the
# generated psdkit/Version.hpp); the API reference is built from the installed copies. Headers not
# listed here are internal to the library and may change at any time. A public header includes
# nothing but the standard library and other public headers, never a header of a dependency.
set(PSDKIT_PUBLIC_HEADERS
    core/OrderedMap.hpp
    core/PSDError.hpp
    core/PSDFourCharCode.hpp
    core/PSDMacRect.hpp
    core/PSDScanner.hpp
    core/PSDWriter.hpp

    descriptors/BlendModeConversion.hpp
    descriptors/ColorConversion.hpp
    descriptors/Enumerated.hpp
    descriptors/GradientConversion.hpp
    descriptors/PSDDescriptor.hpp
    descriptors/PSDDescriptorProperties.hpp
    descriptors/PSDDescriptorPropertyValue.hpp
    descriptors/PSDUnitFloat.hpp
    descriptors/RectConversion.hpp
    descriptors/UnifiedStringValue.hpp

    document/PSDAlphaChannel.hpp
    document/PSDColorMode.hpp
    document/PSDImageResourceBlock.hpp
    document/PSDWrapper.hpp

    layers/PSDCompressionType.hpp
    layers/PSDLayerType.hpp
    layers/PSDLayerWrapper.hpp

    render/PSDRenderer.hpp

    platform/ColorSpace.hpp
    platform/ImageMetadata.hpp
    platform/PlatformError.hpp
    platform/PropertyList.hpp
    platform/PropertyValue.hpp
    platform/support/Diagnostics.hpp
    platform/support/HostApplication.hpp

    platform/image/BlendMode.hpp
    platform/image/ChannelData.hpp
    platform/image/ChannelDataCompressionType.hpp
    platform/image/ColorGradient.hpp
    platform/image/Geometry.hpp
    platform/image/ImageError.hpp
    platform/image/LargeAllocation.hpp # the storage of PixelBuffer; its contents are internal
    platform/image/PixelBuffer.hpp
    platform/image/PixelTypes.hpp
    platform/image/RGBAPixel.hpp
)
