package vendor.quarn.hardware.torq;

import vendor.quarn.hardware.torq.ITorqCallback;
import vendor.quarn.hardware.torq.TorqRequestData;
import vendor.quarn.hardware.torq.TorqRequestParcel;

/**
 * The Torq resource-control HAL, instance "vendor.quarn.hardware.torq.ITorq/default".
 *
 * Methods that return an int return a handle (greater than 0 when accepted) or a result code.
 */
@VintfStability
interface ITorq {
    void init();

    int request(in TorqRequestParcel parcel);

    int release(int handle);

    TorqRequestData[] stateRequest(in TorqRequestParcel parcel);

    int listeningRegister(in TorqRequestParcel parcel, in ITorqCallback callback);

    int listeningUnregister(int handle);

    String propertyGet(in String name);

    int propertySet(in String name, in String value);

    int thermalListeningRegister(in int[] ids, in ITorqCallback callback);

    int thermalListeningUnregister(int handle);

    /**
     * Event notification from other HAL clients. Declared for them; the client library
     * (libquarn-zel-client) never calls it.
     */
    int notifyEvent(in TorqRequestParcel parcel);

    int setRelatedSysInfo(int type, long value);

    int ruleCtl(int ruleId, int status, in TorqRequestData[] data);
}
