include $(sort $(wildcard $(BR2_EXTERNAL_LVT_RSTP_PATH)/package/*/*.mk))
