namespace KRCB {}
