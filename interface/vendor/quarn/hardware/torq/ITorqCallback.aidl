package vendor.quarn.hardware.torq;

import vendor.quarn.hardware.torq.TorqRequestData;

/**
 * Served by HAL clients: the HAL reports request results and listened changes through it.
 */
@VintfStability
interface ITorqCallback {
    oneway void onCallback(in TorqRequestData[] data);
}
