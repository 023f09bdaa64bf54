#include "image/jpegdec/JpegColorComponent.h"

CJPEGColorComponent::~CJPEGColorComponent() = default;
