#include "Common/Configuration/config/CameraSchema.h"

#include "Common/Utils/ModuleImage.h"
#include "platform/resources.h"

namespace {

constexpr char16_t kSchemaType[] = u"XML";
constexpr std::uint16_t kSchemaNumber = 203;

} // namespace

platform::Bstr CameraSchemaText() {
    const auto oResource = platform::FindResource(ThisModule(), kSchemaType, kSchemaNumber);
    return platform::Bstr(oResource ? platform::ToWide(oResource->Text(), platform::kCodePageThread) : u"");
}
