package java.lang;

public class VirtualMachineError extends Error {
    public VirtualMachineError() {}

    public VirtualMachineError(String message) {}
}
