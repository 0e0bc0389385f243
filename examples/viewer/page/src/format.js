const whole = new Intl.NumberFormat("en");
const short = new Intl.NumberFormat("en", { maximumSignificantDigits: 4 });
const place = new Intl.NumberFormat("en", { minimumFractionDigits: 3, maximumFractionDigits: 3, useGrouping: false });

export const formatCount = (count) => whole.format(count);
export const formatValue = (value) => short.format(value);
/// A coordinate or a length in the cloud's unit.
export const formatCoordinate = (value) => place.format(value);

export function formatBytes(bytes) {
  const units = ["B", "kB", "MB", "GB"];
  let unit = 0;
  while (bytes >= 1000 && unit < units.length - 1) {
    bytes /= 1000;
    unit += 1;
  }
  return `${bytes < 10 && unit > 0 ? bytes.toFixed(1) : Math.round(bytes)} ${units[unit]}`;
}
