// Which variant this is.

namespace KERNEL_TARGET {

IppStatus ippxVariant(const char** pszSet) {
    if (!pszSet)
        return ippStsNullPtrErr;
    *pszSet = KERNEL_SET;
    return ippStsNoErr;
}

} // namespace KERNEL_TARGET
