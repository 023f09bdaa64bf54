<?xml version="1.0" encoding="UTF-8"?>
<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform" xmlns:msxsl="urn:schemas-microsoft-com:xslt" exclude-result-prefixes="msxsl">
	<xsl:output method="html" encoding="UTF-8"/>
	<xsl:template match="mobile">
		<xsl:text disable-output-escaping="yes">&lt;</xsl:text>!DOCTYPE html PUBLIC "-//WAPFORUM//DTD XHTML Mobile 1.0//EN" "http://www.wapforum.org/DTD/xhtml-mobile10.dtd"<xsl:text disable-output-escaping="yes">&gt;</xsl:text>
		<html>
			<head>
				<title>Tessaron</title>
				<meta http-equiv="Content-Type" content="application/vnd.wap.xhtml+xml; charset=UTF-8"/>
			</head>
			<body>
				<div>
					<a href="/xslt/enum/all?xslt=SensorsPage.xslt"><xsl:value-of select="//local/@devices"/></a>
				</div>
				<xsl:if test="view">
					<form action="/mobile/Viewlander.jar" method="GET" style="border:1px solid black">
						<xsl:value-of select="//local/@VideoOnMobile"/>
						<br/>
						<xsl:value-of select="//local/@MidletName"/>:
						<input type="text" name="JarName" value="Viewlander"/>
						<input type="submit" value="{//local/@download}"/>
					</form>
				</xsl:if>
				<xsl:if test="upload">
					<form action="/mobile/Sendora.jar" method="GET" style="border:1px solid black">
						<xsl:value-of select="//local/@TranslationToServer"/>
						<br/>
						<xsl:value-of select="//local/@MidletName"/>:
						<input type="text" name="JarName" value="Sendora"/>
						<input type="submit" value="{//local/@download}"/>
					</form>
				</xsl:if>
			</body>
		</html>
	</xsl:template>
</xsl:stylesheet>
